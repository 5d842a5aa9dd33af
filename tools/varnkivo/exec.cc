// `exec`: runs a program with a fresh token in its environment, so that no script has to hold one. The token is in the
// environment of that program alone: not in ours, not in an argument, not in a file.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "command_line.h"
#include "device_token.h"
#include "failure.h"
#include "text.h"

namespace kivotool {
namespace {

struct ExecOptions {
  std::vector<std::string> command;
  bool json = false;
};

[[noreturn]] void Become(std::vector<std::string>& command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command) words.push_back(word.data());
  words.push_back(nullptr);
  execvp(words[0], words.data());
  const std::string reason = std::strerror(errno);
  unsetenv("VARNKIVO_ACCESS_TOKEN");
  throw UsageFailure("\"" + command[0] + "\" could not be run: " + reason + ".", "varnkivo exec --help");
}

Exit RunExec(ExecOptions& options) {
  const std::string token = FetchDeviceToken(false, "varnkivo exec -- " + ShellWord(options.command[0]), options.json);
  setenv("VARNKIVO_ACCESS_TOKEN", token.c_str(), 1);
  Become(options.command);
}

}  // namespace

void AddExec(CLI::App& app, Invocation& call) {
  auto options = std::make_shared<ExecOptions>();
  CLI::App* verb =
      AddVerb(app, call, "exec", "Run a program with a valid access token in VARNKIVO_ACCESS_TOKEN",
              "varnkivo exec -- sh -c 'curl -H @- URL <<< \"Authorization: Bearer $VARNKIVO_ACCESS_TOKEN\"'\n\n"
              "Ends with the program's own exit code.");
  verb->add_option("command", options->command, "The program and its arguments, after --")->required();
  verb->callback([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunExec(*options); };
  });
}

}  // namespace kivotool
