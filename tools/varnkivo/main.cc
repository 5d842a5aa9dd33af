// The command-line tool: parses, runs one verb, prints what went wrong, ends with a promised exit code. Everything the
// device knows comes from the library's public interface and the documented files; stdout carries data and nothing
// else.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <exception>

#include "command_line.h"
#include "environment.h"
#include "failure.h"
#include "interrupt.h"
#include "output.h"

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

/// Before parsing, because a command line that does not parse is an error of JSON mode too.
bool WantsJson(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--json") == 0) return true;
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

Exit Run(int argc, char** argv, bool json) {
  CLI::App app;
  kivotool::Invocation call;
  kivotool::DefineCommandLine(app, call);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& wish) {  // --help, --version
    app.exit(wish);
    return kivotool::kDone;
  } catch (const CLI::ParseError& error) {
    throw kivotool::ExplainMistake(app, error, argc, argv);
  }
  if (!call.run) throw kivotool::UsageFailure("No verb was given.", "varnkivo --help");
  kivotool::CatchInterrupts(json ? kivotool::ToJsonLine(InterruptedFailure()) + "\n" : "varnkivo: interrupted\n");
  return call.run();
}

Exit Guarded(int argc, char** argv, bool json) {
  try {
    return Run(argc, argv, json);
  } catch (const Failure& failure) {
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
  const bool json = WantsJson(argc, argv);
  const Exit exit = Guarded(argc, argv, json);
  if (kivotool::StdoutIsWhole()) return exit;
  kivotool::Report({kivotool::kFailed, std::nullopt, "The output could not be written.", kivotool::Retry::kPerhaps,
                    "Nothing.", "varnkivo status"},
                   json);
  return exit == kivotool::kDone ? kivotool::kFailed : exit;
}
