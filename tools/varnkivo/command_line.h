// The verbs and their options, in one definition: parsing, help and the suggestions for mistyped words come from it.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "failure.h"

namespace kivotool {

/// What the command line asked for; a verb's callback fills `run`, main calls it.
struct Invocation {
  bool json = false;
  std::vector<std::string> program;  ///< every word after the first "--", as it came
  bool takesProgram = false;         ///< set by the verb that wants them
  std::function<Exit()> run;
};

// One function a verb: adds it, with its options, help and example.
void AddLogin(CLI::App& app, Invocation& call);
void AddLogout(CLI::App& app, Invocation& call);
void AddExec(CLI::App& app, Invocation& call);
void AddToken(CLI::App& app, Invocation& call);
void AddStatus(CLI::App& app, Invocation& call);
void AddWhoami(CLI::App& app, Invocation& call);
void AddIsSignedIn(CLI::App& app, Invocation& call);
void AddAccount(CLI::App& app, Invocation& call);
void AddReport(CLI::App& app, Invocation& call);
void AddPackages(CLI::App& app, Invocation& call);
void AddPaths(CLI::App& app, Invocation& call);
void AddVersion(CLI::App& app, Invocation& call);
void AddReportInfo(CLI::App& app, Invocation& call);

/// A verb with "--json" and an example under its help.
CLI::App* AddVerb(CLI::App& app, Invocation& call, const std::string& name, const std::string& description,
                  const std::string& example);

/// All of it.
void DefineCommandLine(CLI::App& app, Invocation& call);

/// What to say about a command line that did not parse, with the word that was perhaps meant.
Failure ExplainMistake(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv);

}  // namespace kivotool
