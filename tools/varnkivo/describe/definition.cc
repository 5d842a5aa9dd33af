// Reads the definition of the command line that the tool itself parses by.
#include "definition.h"

#include <CLI/CLI.hpp>

namespace kivotool {
namespace {

/// CLI11 keeps the words of IsMember in the name of the type only: "TEXT:{token,json}".
std::vector<std::string> Choices(const std::string& typeName) {
  std::vector<std::string> words;
  const std::size_t open = typeName.find('{'), close = typeName.find('}');
  if (open == std::string::npos || close == std::string::npos) return words;
  std::string rest = typeName.substr(open + 1, close - open - 1);
  for (std::size_t comma; (comma = rest.find(',')) != std::string::npos; rest.erase(0, comma + 1))
    words.push_back(rest.substr(0, comma));
  words.push_back(rest);
  return words;
}

OptionText DescribeOption(const CLI::Option& option) {
  OptionText text;
  for (const std::string& name : option.get_snames()) text.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) text.names.push_back("--" + name);
  text.positional = text.names.empty();
  if (text.positional) text.names.push_back(option.get_name(true));
  text.takesValue = option.get_items_expected_max() > 0;
  text.choices = Choices(option.get_type_name());
  text.description = option.get_description();
  return text;
}

}  // namespace

bool OptionText::TakesFile() const {
  const std::string& name = names.back();
  const std::string ending = "-file";
  return takesValue && name.size() > ending.size() &&
         name.compare(name.size() - ending.size(), ending.size(), ending) == 0;
}

std::string OptionText::ValueName() const {
  if (!choices.empty()) return Joined(choices, "|");
  return TakesFile() ? "FILE" : "VALUE";
}

VerbText Describe(const CLI::App& app, const std::string& path) {
  VerbText verb{path, app.get_description(), app.get_footer(), {}, {}};
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) verb.options.push_back(DescribeOption(*option));  // without one it is hidden
  }
  for (const CLI::App* below : app.get_subcommands({})) {
    verb.verbs.push_back(Describe(*below, path.empty() ? below->get_name() : path + " " + below->get_name()));
  }
  return verb;
}

std::vector<const VerbText*> Flatten(const VerbText& verb) {
  std::vector<const VerbText*> all{&verb};
  for (const VerbText& below : verb.verbs) {
    const std::vector<const VerbText*> more = Flatten(below);
    all.insert(all.end(), more.begin(), more.end());
  }
  return all;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

}  // namespace kivotool
