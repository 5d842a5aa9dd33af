// What the tool ends with, from the cause to the exit code, and what stands on which stream.
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;

TEST_F(ToolTest, EveryAnswerToALoginHasItsExitCode) {
  const struct {
    int status;
    const char* body;
    int exit, library;
    const char* retry;
  } answers[] = {{400, R"({"code":"account_not_found"})", 4, 25, "no"},
                 {503, "down", 5, 4, "yes"},
                 {400, R"({"code":"badsys"})", 7, 6, "yes"},
                 {400, R"({"code":"apikey_expired"})", 8, 27, "perhaps"},
                 {200, "<html>", 1, 2, "perhaps"},
                 {400, R"({"code":"something new"})", 1, 24, "perhaps"}};
  for (const auto& answer : answers) {
    SCOPED_TRACE(answer.library);
    Cloud().QueueFault(kLoginPath, Fault::Answer(answer.status, answer.body));
    const Result result = LogIn({"--json"});
    EXPECT_EQ(answer.exit, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(answer.library, ErrorOf(result)["library_code"].asInt());
    EXPECT_EQ(answer.retry, ErrorOf(result)["retry_helps"].asString());
    EXPECT_FALSE(std::filesystem::exists(kRecord));
  }
}

TEST_F(ToolTest, AFailingPluginIsNotTakenForAFailedSignInAndStrictEndsWithNine) {
  const std::string folder = "/usr/varn/lib/plugins/kivo/kivo/login";
  std::filesystem::create_directories(folder);
  Write(folder + "/10-fails", "#!/bin/sh\nexit 1\n", 0755);
  EXPECT_THAT(ErrorOf(LogIn({"--json"}))["cause"].asString(), HasSubstr("plug-in failed"));
  Cloud().ClearJournal();
  EXPECT_EQ("already", ErrorOf(Tool({"login", "--email", "ANN@example.com", "--strict", "--json"}))["kind"].asString());
  EXPECT_EQ(9, Tool({"login", "--key", "--user-id", kUserId, "--strict"}).exit);
  EXPECT_EQ(0u, Cloud().Connections());
}

TEST_F(ToolTest, MistakesEndWithTwoAndSuggestWhatWasMeant) {
  const struct {
    Words arguments;
    const char *cause, *run;
  } mistakes[] = {
      {{}, "No verb", "varnkivo --help"},
      {{"statsu"}, "Did you mean \"status\"?", "varnkivo status --help"},
      {{"account", "shwo"}, "Did you mean \"show\"?", "varnkivo account show --help"},
      {{"help"}, "Did you mean \"--help\"?", "varnkivo --help"},
      {{"account"}, "needs one of its verbs: show, set,", "varnkivo account --help"},
      {{"login", "--email"}, "\"--email\" needs a value.", "varnkivo login --help"},
      {{"login", "--password", "x"}, "There is no option \"--password\"", "varnkivo login --password-stdin"},
      {{"login", "--email", kEmail}, "no terminal", "varnkivo login --help"},
      {{"login", "--key", "--email", kEmail}, "either", "varnkivo login --help"},
      {{"login", "--email", "a\nb", "--password-stdin"}, "control characters", "varnkivo login --help"},
      {{"login", "--email", kEmail, "--password-stdin", "--password-file", "/x"}, "excludes", "varnkivo login --help"},
      {{"token", "--min-valid", "-1"}, "from 0 to 31536000", "varnkivo token --help"},
      {{"token", "--min-valid", ""}, "from 0 to 31536000", "varnkivo token --help"},
      {{"token", "--min-valid", "31536001"}, "from 0 to 31536000", "varnkivo token --help"},
      {{"--report_info", "status"}, "stands alone", "varnkivo"}};
  for (const auto& mistake : mistakes) {
    const Result result = Tool(mistake.arguments);
    EXPECT_EQ(2, result.exit) << mistake.cause;
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr(mistake.cause));
    EXPECT_THAT(result.err, HasSubstr(std::string("Run:         ") + mistake.run));
  }
  EXPECT_EQ("usage", ErrorOf(Tool({"statsu", "--json"}))["kind"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
}

TEST_F(ToolTest, ASignalEndsWith130AndAWordAndLostOutputWithOne) {
  Cloud().QueueFault(kLoginPath, Fault::NeverAnswer());
  ToolProcess tool({{"login", "--email", kEmail, "--password-stdin", "--json"}, "x\n"});
  while (Cloud().Requests(kLoginPath).empty()) usleep(1000);
  tool.Signal(SIGTERM);
  const Result result = tool.Wait();
  EXPECT_EQ("interrupted", ErrorOf(result)["kind"].asString());
  EXPECT_EQ("130", result.out + std::to_string(result.exit));
  EXPECT_EQ(1, WEXITSTATUS(std::system(VARNKIVO_TOOL_PATH " paths >/dev/full 2>/tmp/said")));
  EXPECT_THAT(Read("/tmp/said"), HasSubstr("could not be written"));
}

}  // namespace
}  // namespace tooltest
