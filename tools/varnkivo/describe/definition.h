// The command line as data: what the man page and the completions are written from.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace kivotool {

struct OptionText {
  std::vector<std::string> names;  // as typed: "-h", "--help"; a positional has the one name without dashes
  std::string description;
  bool positional = false, takesValue = false;
  std::vector<std::string> choices;  // the only values it takes; empty: any

  /// A file name is wanted.
  bool TakesFile() const;
  /// What stands for the value in a synopsis: "FILE", "VALUE", "token|json".
  std::string ValueName() const;
};

struct VerbText {
  std::string path;  // of the words after the program's name: "", "login", "account show"
  std::string description, footer;
  std::vector<OptionText> options;
  std::vector<VerbText> verbs;

  std::string LastWord() const { return path.substr(path.rfind(' ') + 1); }
};

VerbText Describe(const CLI::App& app, const std::string& path = "");

/// `verb` and all below it, parents first.
std::vector<const VerbText*> Flatten(const VerbText& verb);

/// Every `from` in `text` replaced.
std::string Replaced(std::string text, const std::string& from, const std::string& to);

std::string Joined(const std::vector<std::string>& words, const std::string& between);

// What is written from it. Each is a whole file.
std::string ManPage(const VerbText& root, const std::string& version);
std::string BashCompletion(const VerbText& root);
std::string ZshCompletion(const VerbText& root);
std::string FishCompletion(const VerbText& root);

}  // namespace kivotool
