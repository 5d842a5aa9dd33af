// The command-line tool: parses, runs one verb, prints what went wrong, ends with a promised exit code. Everything the
// device knows comes from the library's public interface and the documented files; stdout carries data and nothing
// else.
#include <fcntl.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "command_line.h"
#include "environment.h"
#include "failure.h"
#include "interrupt.h"
#include "output.h"
#include "text.h"

namespace {

using kivotool::Exit;
using kivotool::Failure;

/// A closed standard descriptor would be given to the next file or socket, and the output go there. Opened for reading,
/// so that a write still fails.
void OccupyStandardDescriptors() {
  while (true) {
    const int file = open("/dev/null", O_RDONLY);
    if (file > STDERR_FILENO) close(file);
    if (file < 0 || file > STDERR_FILENO) return;
  }
}

/// How many words come before the first "--". What follows is another program's and is looked at by nobody here.
int OwnWords(int argc, char** argv) {
  int count = 1;
  while (count < argc && std::strcmp(argv[count], "--") != 0) ++count;
  return std::min(count, argc);
}

/// A guess by the words alone, for a command line that does not parse; one that does says it for sure.
bool SeemsToWantJson(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i], next = i + 1 < argc ? argv[i + 1] : "";
    if (word == "--json" || word == "--format=json" || (word == "--format" && next == "json")) return true;
  }
  return false;
}

Failure InterruptedFailure() {
  return {kivotool::kInterrupted,
          std::nullopt,
          "Interrupted.",
          kivotool::Retry::kYes,
          "Nothing further; what was asked of the account centre may have been done there.",
          "varnkivo status"};
}

/// `json`: a guess on the way in, how errors are to be told from then on.
Exit Run(int own, int argc, char** argv, bool& json) {
  CLI::App app;
  kivotool::Invocation call;
  if (own < argc) call.program.assign(argv + own + 1, argv + argc);
  kivotool::DefineCommandLine(app, call);
  try {
    app.parse(own, argv);
  } catch (const CLI::Success& wish) {  // --help, --version
    app.exit(wish);
    return kivotool::kDone;
  } catch (const CLI::ParseError& error) {
    throw kivotool::ExplainMistake(app, error, own, argv);
  }
  json = call.json;
  if (!call.run) throw kivotool::UsageFailure("No verb was given.", "varnkivo --help");
  if (own < argc && !call.takesProgram)
    throw kivotool::UsageFailure("\"--\" is not expected here: this verb runs no program.", "varnkivo exec --help");
  const std::string last = json ? kivotool::ToJsonLine(InterruptedFailure()) + "\n" : "varnkivo: interrupted\n";
  kivotool::CatchInterrupts(call.silent ? "" : last);
  return call.run();
}

/// The command as it was typed, but for another program's arguments: whoever lacks rights needs it with more of them.
std::string Again(int own, int argc, char** argv) {
  std::string words = "varnkivo";
  for (int i = 1; i < std::min(argc, own + 2); ++i) words += " " + kivotool::ShellWord(argv[i]);
  return words;
}

Exit Guarded(int own, int argc, char** argv, bool& json) {
  try {
    return Run(own, argc, argv, json);
  } catch (Failure& failure) {
    if (failure.exit == kivotool::kPermission && failure.run.rfind("sudo ", 0) == 0)
      failure.run = "sudo " + Again(own, argc, argv);
    kivotool::Report(failure, json);
    return failure.exit;
  } catch (const std::exception& error) {
    kivotool::Report({kivotool::kFailed, std::nullopt, std::string("Unexpected: ") + error.what(),
                      kivotool::Retry::kPerhaps, "Nothing.", "varnkivo status"},
                     json);
    return kivotool::kFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardDescriptors();
  kivotool::DropUntrustedEnvironment();
  const int own = OwnWords(argc, argv);
  bool json = SeemsToWantJson(own, argv);
  const Exit exit = Guarded(own, argc, argv, json);
  if (kivotool::StdoutIsWhole()) return exit;
  kivotool::Report({kivotool::kFailed, std::nullopt, "The output could not be written.", kivotool::Retry::kPerhaps,
                    "Nothing.", "varnkivo status"},
                   json);
  return exit == kivotool::kDone ? kivotool::kFailed : exit;
}
