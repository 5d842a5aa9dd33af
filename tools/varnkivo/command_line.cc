// Puts the verbs together, and finds the word that a mistyped one was meant to be. No state besides the definition.
#include "command_line.h"

#include <varnkivo/varnkivo.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <vector>

#include "text.h"

namespace kivotool {
namespace {

/// Edit distance with swaps of neighbours: "statsu" is one step from "status".
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::vector<std::size_t>> steps(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        steps[i][j] = i + j;
        continue;
      }
      const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
      steps[i][j] = std::min({steps[i - 1][j] + 1, steps[i][j - 1] + 1, steps[i - 1][j - 1] + change});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        steps[i][j] = std::min(steps[i][j], steps[i - 2][j - 2] + 1);
      }
    }
  }
  return steps[a.size()][b.size()];
}

std::string Closest(const std::string& word, const std::vector<std::string>& known) {
  std::string best;
  std::size_t fewest = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (const std::string& candidate : known) {
    const bool begun = candidate.rfind(word, 0) == 0;  // "--password", of "--password-file"
    const std::size_t steps = begun ? 1 : Distance(word, candidate);
    if (steps < fewest) fewest = steps, best = candidate;
  }
  return best;
}

std::vector<std::string> VerbsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* verb : app.get_subcommands({})) names.push_back(verb->get_name());
  return names;
}

std::vector<std::string> OptionsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  return names;
}

struct Mistake {
  const CLI::App* level = nullptr;  // the verb, as far as it was understood
  std::string verbs;                // the same in words: "varnkivo account"
  std::string word;                 // the first one that was not; empty: none
  std::string meant;
  bool option = false;
};

Mistake FindMistake(const CLI::App& app, int argc, char** argv) {
  Mistake mistake{&app, "varnkivo", "", "", false};
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i], name = word.substr(0, word.find('='));
    mistake.option = word.rfind("--", 0) == 0;
    if (mistake.option) {
      const std::vector<std::string> known = OptionsOf(*mistake.level);
      if (std::find(known.begin(), known.end(), name) != known.end()) continue;
      mistake.word = name;
      mistake.meant = Closest(name, known);
      return mistake;
    }
    if (word.empty() || word[0] == '-' || mistake.level->get_subcommands({}).empty()) continue;  // short, or a value
    const std::vector<std::string> verbs = VerbsOf(*mistake.level);
    if (std::find(verbs.begin(), verbs.end(), word) == verbs.end()) {
      mistake.word = word;
      mistake.meant = word == "help" ? "--help" : Closest(word, verbs);
      return mistake;
    }
    mistake.level = mistake.level->get_subcommand(word);
    mistake.verbs += " " + word;
  }
  return mistake;
}

/// In words of this tool where the parser's own are its jargon.
std::string Complaint(const Mistake& mistake, const CLI::ParseError& error) {
  const std::string text = error.what();
  const std::vector<std::string> verbs = VerbsOf(*mistake.level);
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error))
    return "\"" + text.substr(0, text.find(':')) + "\" needs a value.";
  if (dynamic_cast<const CLI::RequiredError*>(&error) && !verbs.empty())
    return "\"" + mistake.verbs + "\" needs one of its verbs: " + CLI::detail::join(verbs, ", ") + ".";
  if (dynamic_cast<const CLI::ExtrasError*>(&error) && mistake.level->get_name() == "exec")
    return text + "; the program and its arguments follow \"--\".";
  return text + ".";
}

}  // namespace

void DefineCommandLine(CLI::App& app, Invocation& call) {
  app.description("Connects this device to its Kivo account.");
  app.set_version_flag("--version", std::string("varnkivo ") + VARNKIVO_VERSION, "Print the version");
  app.set_help_flag("-h,--help", "Print this help");
  app.require_subcommand(0, 1);
  app.footer(
      "Examples:\n"
      "  varnkivo login --email ann@example.com\n"
      "  varnkivo status\n"
      "  varnkivo account show --json\n\n"
      "Exit codes: 0 done, 1 failed, 2 usage, 3 not signed in, 4 refused, 5 network or server, 6 busy,\n"
      "7 permission, 8 device not provisioned, 9 already so, 130 interrupted.");
  const Verb verbs(app);
  AddLogin(verbs, call);
  AddLogout(verbs, call);
  AddToken(verbs, call);
  AddExec(verbs, call);
  AddStatus(verbs, call);
  AddWhoami(verbs, call);
  AddIsSignedIn(verbs, call);
  AddAccount(verbs, call);
  AddReport(verbs, call);
  AddPackages(verbs, call);
  AddShop(verbs, call);
  AddScan(verbs, call);
  AddPaths(verbs, call);
  AddVersion(verbs, call);
  AddReportInfo(verbs, call);
}

Failure ExplainMistake(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv) {
  const Mistake mistake = FindMistake(app, argc, argv);
  const std::string help = mistake.verbs + " --help";
  if (mistake.word.empty()) return UsageFailure(Complaint(mistake, error), help);
  std::string cause = std::string("There is no ") + (mistake.option ? "option \"" : "verb \"") + mistake.word + "\".";
  if (mistake.word == "--password" || mistake.word == "--auth-key") cause += " A secret is never an argument.";
  if (mistake.meant.empty()) return UsageFailure(cause, help);
  const bool isVerb = mistake.meant.rfind("--", 0) != 0;
  return UsageFailure(cause + " Did you mean \"" + mistake.meant + "\"?",
                      mistake.verbs + " " + mistake.meant + (isVerb ? " --help" : ""));
}

}  // namespace kivotool
