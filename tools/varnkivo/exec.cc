// `exec`: runs a program with a fresh token in its environment, so that no script has to hold one. The token is in the
// environment of that program alone: not in ours, not in an argument, not in a file. The program runs with the rights
// of the user who named it, whatever rights the tool has.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "command_line.h"
#include "failure.h"
#include "fetch_token.h"
#include "rights.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kVariable[] = "VARNKIVO_ACCESS_TOKEN";
constexpr char kNotRun[] = "Nothing; the program was not run.";

struct ExecOptions {
  std::vector<std::string> command;
  bool json = false;
  TokenWish wish;
};

[[noreturn]] void Become(std::vector<std::string>& command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  execvp(words[0], words.data());
  const int error = errno;
  unsetenv(kVariable);
  throw Failure{error == ENOENT ? kNoProgram : kNotRunnable,
                std::nullopt,
                "\"" + command[0] + "\" could not be run: " + std::strerror(error) + ".",
                Retry::kNo,
                kNotRun,
                "varnkivo exec --help"};
}

Exit RunExec(ExecOptions& options) {
  if (options.command.empty())
    throw UsageFailure("No program was given: it and its arguments follow \"--\".", "varnkivo exec --help");
  options.wish.again = "varnkivo exec" + PackageWords(options.wish) + " -- " + ShellWord(options.command[0]);
  const std::string token = FetchToken(options.wish, options.json).text;
  if (!DropRaisedRights())
    throw Failure{kPermission, std::nullopt, "The tool's raised rights could not be given up.",
                  Retry::kNo,  kNotRun,      "sudo " + options.wish.again};
  unsetenv(kVariable);  // setenv() changes one of two with the same name, and the program may read the other
  setenv(kVariable, token.c_str(), 1);
  Become(options.command);
}

}  // namespace

void AddExec(Verb app, Invocation& call) {
  auto options = std::make_shared<ExecOptions>();
  const Verb verb = app.AddVerb(
      call, "exec", "Run the program after \"--\", with a valid access token in VARNKIVO_ACCESS_TOKEN",
      "varnkivo exec -- sh -c 'echo \"Authorization: Bearer $VARNKIVO_ACCESS_TOKEN\" | curl -H @- URL'\n"
      "  varnkivo exec --package photos -- /usr/local/bin/photos-sync\n\n"
      "Ends with the program's own exit code; with 127 where there is no such program, and 126 where it cannot "
      "be run.");
  verb.Json().Described("An error of the tool is one JSON object on stderr");
  AddPackageOption(verb, options->wish);
  verb.OnUse([options, &call] {
    options->json = call.json;
    options->command = call.program;
    call.takesProgram = true;
    call.run = [options] { return RunExec(*options); };
  });
}

}  // namespace kivotool
