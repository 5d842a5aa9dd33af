// The verbs and their options, in one definition: parsing, help and the suggestions for mistyped words come from it.
#pragma once

#include "failure.h"
#include "verb.h"

namespace CLI {
class ParseError;
}  // namespace CLI

namespace kivotool {

// One function a verb: adds it, with its options, help and example.
void AddLogin(Verb app, Invocation& call);
void AddLogout(Verb app, Invocation& call);
void AddExec(Verb app, Invocation& call);
void AddToken(Verb app, Invocation& call);
void AddStatus(Verb app, Invocation& call);
void AddWhoami(Verb app, Invocation& call);
void AddIsSignedIn(Verb app, Invocation& call);
void AddAccount(Verb app, Invocation& call);
void AddReport(Verb app, Invocation& call);
void AddPackages(Verb app, Invocation& call);
void AddShop(Verb app, Invocation& call);
void AddScan(Verb app, Invocation& call);
void AddPaths(Verb app, Invocation& call);
void AddVersion(Verb app, Invocation& call);
void AddReportInfo(Verb app, Invocation& call);

/// All of it.
void DefineCommandLine(CLI::App& app, Invocation& call);

/// What to say about a command line that did not parse, with the word that was perhaps meant.
Failure ExplainMistake(const CLI::App& app, const CLI::ParseError& error, int argc, char** argv);

}  // namespace kivotool
