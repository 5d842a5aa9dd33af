// What the tool ends with, from the cause to the exit code, and what stands on
// which stream.

#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <csignal>
#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(ToolTest, EveryAnswerToALoginHasItsExitCode) {
  const struct {
    Fault fault;
    int exit;
    int library;
    const char* retry;
  } answers[] = {{Fault::Answer(400, R"({"code":"account_not_found"})"), 4, 25, "no"},
                 {Fault::Answer(400, R"({"code":"account_unverified"})"), 4, 18, "perhaps"},
                 {Fault::Answer(503, "down"), 5, 4, "yes"},
                 {Fault::Answer(200, R"({"id":"1001"})"), 5, 5, "yes"},
                 {Fault::Answer(400, R"({"code":"badsys"})"), 7, 6, "yes"},
                 {Fault::Answer(400, R"({"code":"apikey_expired"})"), 8, 27, "perhaps"},
                 {Fault::Answer(400, R"({"code":"invalid_machine"})"), 8, 28, "no"},
                 {Fault::Answer(200, "<html>"), 1, 2, "perhaps"},
                 {Fault::Answer(400, R"({"code":"something new"})"), 1, 24, "perhaps"}};
  for (const auto& answer : answers) {
    SCOPED_TRACE(answer.library);
    Cloud().QueueFault(kLoginPath, answer.fault);
    const Result result = LogIn({"--json"});
    EXPECT_EQ(answer.exit, result.exit);
    EXPECT_EQ("", result.out);
    const Json::Value error = ErrorOf(result);
    EXPECT_EQ(answer.library, error["library_code"].asInt());
    EXPECT_EQ(answer.retry, error["retry_helps"].asString());
    EXPECT_FALSE(std::filesystem::exists(kRecord));
  }
}

TEST_F(ToolTest, MistakesEndWithTwoAndSuggestWhatWasMeant) {
  const struct {
    std::vector<std::string> arguments;
    const char* cause;
    const char* run;
  } mistakes[] = {
      {{}, "No verb", "varnkivo --help"},
      {{"statsu"}, "Did you mean \"status\"?", "varnkivo status --help"},
      {{"account", "shwo"}, "Did you mean \"show\"?", "varnkivo account show --help"},
      {{"status", "--jsn"}, "Did you mean \"--json\"?", "varnkivo status --json"},
      {{"login", "--password", "x"}, "There is no option \"--password\"", "varnkivo login"},
      {{"login", "--email", kEmail}, "no terminal", "varnkivo login --help"},
      {{"login", "--key", "--email", kEmail}, "either", "varnkivo login --help"},
      {{"login", "--verify-only"}, "--email is missing", "varnkivo login --help"},
      {{"login", "--key", "--auth-key-stdin"}, "--user-id is missing", "varnkivo login --help"},
      {{"login", "--user-id", "1"}, "--user-id goes with --key", "varnkivo login --help"},
      {{"login", "--key", "--user-id", "1", "--verify-only"}, "without signing in", "varnkivo login --help"},
      {{"login", "--email", "a\nb", "--password-stdin"}, "control characters", "varnkivo login --help"},
      {{"login", "--email", kEmail, "--password-stdin", "--password-file", "/x"}, "excludes", "varnkivo login --help"},
      {{"--report_info", "status"}, "stands alone", "varnkivo"}};
  for (const auto& mistake : mistakes) {
    SCOPED_TRACE(testing::PrintToString(mistake.arguments));
    Result result = Tool(mistake.arguments);
    EXPECT_EQ(2, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr(mistake.cause));
    EXPECT_THAT(result.err, HasSubstr(std::string("Run:         ") + mistake.run));
  }
  EXPECT_EQ("usage", ErrorOf(Tool({"statsu", "--json"}))["kind"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
}

TEST_F(ToolTest, AQueryEndsWithItsOwnCodes) {
  SignInLongAgo();
  Cloud().QueueFault(kQueryPath, Fault::Answer(503, "down"));
  Result result = Tool({"account", "show", "--refresh", "--json"});
  EXPECT_EQ(5, result.exit);
  EXPECT_EQ("varnkivo account show --refresh", ErrorOf(result)["run"].asString());

  Cloud().Revoke(kEmail);
  result = Tool({"account", "show", "--refresh", "--json"});
  EXPECT_EQ(3, result.exit);
  EXPECT_THAT(ErrorOf(result)["cause"].asString(), HasSubstr("no longer accepts"));
  EXPECT_FALSE(std::filesystem::exists(kRecord));
}

TEST_F(ToolTest, WithoutRightsTheRecordIsOutOfReachAndSaidSo) {
  SignInLongAgo();
  for (const char* verb : {"status", "whoami", "is-signed-in"}) {
    const Result result = RunTool({{verb, "--json"}, "", {}, false, 1000, 1000});
    EXPECT_EQ(7, result.exit) << verb;
    EXPECT_EQ("", result.out);
    EXPECT_EQ("permission", ErrorOf(result)["kind"].asString());
  }
  EXPECT_EQ(0, RunTool({{"paths"}, "", {}, false, 1000, 1000}).exit);
}

TEST_F(ToolTest, AFailingPluginIsNotTakenForAFailedSignIn) {
  const std::string folder = "/usr/varn/lib/plugins/kivo/kivo/login";
  std::filesystem::create_directories(folder);
  Write(folder + "/10-fails", "#!/bin/sh\nexit 1\n", 0755);
  const Result result = LogIn({"--json"});
  EXPECT_EQ(1, result.exit);
  EXPECT_THAT(ErrorOf(result)["cause"].asString(), HasSubstr("plug-in failed"));
  EXPECT_EQ(0, Tool({"is-signed-in"}).exit);
}

TEST_F(ToolTest, StrictEndsWithNineWhenTheAccountIsSignedInAlready) {
  EXPECT_EQ(0, LogIn({"--strict"}).exit);
  Cloud().ClearJournal();
  const Result result = RunTool({{"login", "--email", "ANN@example.com", "--strict", "--json"}});
  EXPECT_EQ(9, result.exit);
  EXPECT_EQ("already", ErrorOf(result)["kind"].asString());
  EXPECT_EQ(9, RunTool({{"login", "--key", "--user-id", kUserId, "--strict"}}).exit);
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(0, LogIn().exit);
}

TEST_F(ToolTest, ASignalEndsWith130AndAWord) {
  for (const int signal : {SIGINT, SIGTERM}) {
    Cloud().QueueFault(kLoginPath, Fault::NeverAnswer());
    ToolProcess tool({{"login", "--email", kEmail, "--password-stdin", "--json"}, "x\n"});
    while (Cloud().Requests(kLoginPath).empty()) usleep(1000);
    tool.Signal(signal);
    const Result result = tool.Wait();
    EXPECT_EQ(130, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("interrupted", ErrorOf(result)["kind"].asString());
    Cloud().ClearJournal();
  }
}

TEST_F(ToolTest, OutputThatCannotBeWrittenIsAFailure) {
  Call call{{"paths"}};
  call.outputFile = "/dev/full";
  const Result result = RunTool(call);
  EXPECT_EQ(1, result.exit);
  EXPECT_THAT(result.err, HasSubstr("could not be written"));
}

}  // namespace
}  // namespace tooltest
