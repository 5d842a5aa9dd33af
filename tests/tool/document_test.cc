// What the tool prints and ends with: JSON documents against the shipped schemas with the same keys in every state, the
// same truth in the plain texts, and from the cause to the exit code.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>
#include <varnkivo/user.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

struct Query {
  const char* schema;
  Words arguments;
  int whenSignedOut;
};
const Query kQueries[] = {{"status", {"status", "--json"}, 0},
                          {"whoami", {"whoami", "--json"}, 3},
                          {"is-signed-in", {"is-signed-in", "--json"}, 3},
                          {"account", {"account", "show", "--json"}, 3},
                          {"packages", {"packages", "--json"}, 0},
                          {"scan", {"scan", "--json"}, 0},
                          {"paths", {"paths", "--json"}, 0},
                          {"version", {"version", "--json"}, 0}};

TEST_F(ToolTest, EveryQuerysDocumentFitsItsSchemaAndNoneAsksOrWaitsOrChanges) {
  const int lock = open("/tmp/account_query_info.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  const std::function<void()> states[3] = {[] {}, [] { varnkivo::User().SetEmail(kEmail); },  // the rest is missing
                                           [] { SignInLongAgo(); }};
  for (int state = 0; state < 3; ++state) {
    states[state]();
    ASSERT_EQ(0, flock(lock, LOCK_EX));
    const std::string before = Snapshot();
    const time_t start = time(nullptr);
    for (const Query& query : kQueries) {
      const Result result = Tool(query.arguments);
      EXPECT_EQ(state == 2 ? 0 : query.whenSignedOut, result.exit) << query.schema << " in state " << state;
      EXPECT_EQ("", CheckDocument(query.schema, result.out)) << "in state " << state;
    }
    for (const char* word : {"--help", "--version"}) EXPECT_EQ(0, Tool({word}).exit);
    EXPECT_LT(time(nullptr) - start, 29) << "one wait for the lock alone would be 30";
    EXPECT_EQ(0u, Cloud().Connections());
    EXPECT_EQ(before, Snapshot());
    ASSERT_EQ(0, flock(lock, LOCK_UN));
  }
  close(lock);
}

TEST_F(ToolTest, SignedOutIsNoForPeopleAndThreeForScripts) {
  EXPECT_EQ("no\n", Tool({"is-signed-in"}).out);
  for (const Words& query : {Words{"whoami"}, {"account", "show", "--refresh"}}) {
    const Result result = Tool(query);
    EXPECT_EQ(3, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr("Run:         varnkivo login"));
  }
  EXPECT_EQ("not_signed_in", ErrorOf(Tool({"account", "show", "--refresh", "--json"}))["kind"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  SignInLongAgo();
  EXPECT_EQ("yes\n", Tool({"is-signed-in"}).out);
  EXPECT_EQ(std::string(kEmail) + "\n", Tool({"whoami"}).out);
  EXPECT_EQ("permission", ErrorOf(AsOrdinaryUser({"status", "--json"}))["kind"].asString());
  Write(kJob, "# by somebody --report_info\nSHELL=/bin/sh\n 30 4 * * * root /usr/varn/bin/varnkivo --report_info \n");
  const Json::Value status = Parse(Tool({"status", "--json"}).out);
  EXPECT_EQ("30 4 * * * root /usr/varn/bin/varnkivo --report_info", status["job"]["line"].asString());
  EXPECT_EQ(1800, status["job"]["next_run_epoch"].asInt() % 3600);
  EXPECT_THAT(Tool({"status"}).out, HasSubstr("mode 0600, owner 934:934"));
  varnkivo::User().SetAuthKey("");
  EXPECT_EQ("incomplete", Parse(Tool({"status", "--json"}).out)["state"].asString());
  EXPECT_EQ(0, AsOrdinaryUser({"paths"}).exit);
}

TEST_F(ToolTest, AProfileIsAskedForOnlyWhenWantedAndOldEnough) {
  SignInLongAgo();
  Cloud().ChangeAccount(kEmail, [](kivosim::Account& account) {
    account.fullName = "Zo\xC3\xAB\033]0;owned\007\xC2\x9B";
    account.criticalVersionList = {{"LUM-8", true}, {"LUM-9", true}, {"LUM-10", false}};
  });
  EXPECT_EQ("Ann Example", Parse(Tool({"account", "show", "--json"}).out)["full_name"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  const Result asked = Tool({"account", "show", "--refresh", "--json"});
  EXPECT_EQ("", CheckDocument("account", asked.out));
  EXPECT_EQ(2u, Parse(asked.out)["critical_versions"].size());
  EXPECT_THAT(asked.out, HasSubstr("Zo\xC3\xAB"));  // as it stands, not escaped
  const Result again = Tool({"account", "show", "--refresh"});
  EXPECT_THAT(again.err, HasSubstr("less than 5 minutes old"));
  EXPECT_EQ(1u, Cloud().Requests(kQueryPath).size());
  EXPECT_THAT(again.out, testing::AllOf(HasSubstr("\\x1b]0;owned\\x07\\x9b"), Not(HasSubstr("\033"))));
  varnkivo::User().SetCountry("D\xFF");
  const Result json = Tool({"account", "show", "--json"});
  EXPECT_EQ("D\xEF\xBF\xBD", Parse(json.out)["country"].asString());
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

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
      {{"account", "shwo"}, "Did you mean \"show\"?", "varnkivo account show --help"},
      {{"help"}, "Did you mean \"--help\"?", "varnkivo --help"},
      {{"account"}, "needs one of its verbs: show, set,", "varnkivo account --help"},
      {{"login", "--email"}, "\"--email\" needs a value.", "varnkivo login --help"},
      {{"login", "--password", "x"}, "There is no option \"--password\"", "varnkivo login --password-stdin"},
      {{"login", "--email", kEmail}, "no terminal", "varnkivo login --help"},
      {{"login", "--key", "--email", kEmail}, "either", "varnkivo login --help"},
      {{"login", "--email", "a\nb", "--password-stdin"}, "control characters", "varnkivo login --help"},
      {{"token", "--min-valid", "-1"}, "from 0 to 31536000", "varnkivo token --help"},
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
