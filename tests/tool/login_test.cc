// Signing in with the tool: what the device holds afterwards, the honest word when that is not what was sent, the tool
// on a terminal, how secrets come in, and that they come out nowhere.
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/user.h>

#include <csignal>
#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

const Words kByEmail = {"login", "--email", kEmail}, kPiped = With(kByEmail, {"--password-stdin", "--verify-only"});

std::string LastPassword(const kivosim::Simulator& cloud) {
  const auto requests = cloud.Requests(kLoginPath);
  return requests.empty() ? "(none)" : requests.back().Param("passwd");
}

TEST_F(ToolTest, LogInSaysWhoAndNothingElse) {
  const Result result = LogIn();
  EXPECT_EQ("Signed in as ann@example.com\n", result.out);
  EXPECT_EQ("", result.err);
  EXPECT_THAT(Read(kJob), HasSubstr("/usr/varn/bin/varnkivo --report_info"));
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
  EXPECT_EQ("", CheckDocument("login", LogIn({"--json"}).out));
  const std::string before = Read(kRecord);
  const Result refused = LogIn({}, "wrong");
  EXPECT_EQ("4", refused.out + std::to_string(refused.exit));
  EXPECT_THAT(refused.err, testing::AllOf(HasSubstr("refused this e-mail and password"), HasSubstr("still is")));
  EXPECT_EQ(before, Read(kRecord));
}

TEST_F(ToolTest, VerifyOnlyTriesThePasswordAndChangesNothing) {
  ASSERT_EQ(0, LogIn({"--verify-only"}).exit);  // makes the device's API key, whoever needs it first
  const std::string before = Snapshot();
  const Result right = LogIn({"--verify-only", "--json"});
  EXPECT_EQ("", CheckDocument("login", right.out));
  EXPECT_EQ("verified", Parse(right.out)["result"].asString());
  EXPECT_EQ(4, LogIn({"--verify-only"}, "wrong").exit);
  EXPECT_EQ(before, Snapshot());
}

TEST_F(ToolTest, AProfileThatIsNotOfThisSignInIsSaidToBeOld) {
  Cloud().QueueFault(kQueryPath, kivosim::Fault::Answer(400, R"({"code":"badauth"})"));
  EXPECT_EQ("refused", ErrorOf(LogIn({"--json"}))["kind"].asString()) << "refused by its own query";
  EXPECT_EQ(3, Tool({"is-signed-in"}).exit);
  Cloud().QueueFault(kQueryPath, kivosim::Fault::Unavailable());
  const Result none = LogIn({"--json"});
  EXPECT_EQ("", CheckDocument("login", none.out));
  EXPECT_FALSE(Parse(none.out)["profile_is_current"].asBool());
  EXPECT_EQ(std::string(kUserId) + "\n", Tool({"whoami"}).out);
}

TEST_F(ToolTest, AKeySignsInAndAWrongOneEndsTheEarlierSignInOnlyWithConsent) {
  ASSERT_EQ(0, LogIn().exit);
  const std::string key = AuthKey(), before = Read(kRecord);
  const Words arguments = {"login", "--key", "--user-id", kUserId, "--auth-key-stdin"};
  const Words consenting = With(arguments, {"--yes"}), typing = {"login", "--key", "--user-id", "7"};
  EXPECT_EQ(2, RunTool({arguments, "wrong\n"}).exit);
  EXPECT_THAT(AtPrompts(typing, {{"Somebody is signed in (ann@example.com)", "n"}}).out, "");
  EXPECT_EQ(before, Read(kRecord));
  const Result fresh = RunTool({consenting, "wrong\n"});  // within five minutes the server is not asked
  EXPECT_EQ(0, fresh.exit);
  EXPECT_THAT(fresh.err, HasSubstr("The key was not checked"));
  varnkivo::User().SetLastQueryTime(1);
  const Result wrong = RunTool({consenting, "wrong\n"});
  EXPECT_EQ(4, wrong.exit);
  EXPECT_THAT(wrong.err, HasSubstr("has been removed"));
  EXPECT_FALSE(std::filesystem::exists(kRecord));
  EXPECT_EQ("Signed in as ann@example.com\n", RunTool({arguments, key + "\n"}).out) << "nobody to lose now";
}

TEST_F(ToolTest, RaisedIdsMakeTheToolDeafToTheCallersProxyAndKeyLog) {
  const std::string keyLog = "/tmp/tool_test_keylog";
  Call call{{"login", "--email", kEmail, "--password-stdin"}, std::string(kPassword) + "\n"};
  call.environment = {"https_proxy=http://127.0.0.1:9", "ALL_PROXY=http://127.0.0.1:9", "SSLKEYLOGFILE=" + keyLog};
  EXPECT_EQ(5, RunTool(call).exit) << "root's own wish is respected: nothing listens there";
  EXPECT_TRUE(std::filesystem::remove(keyLog));
  call.realUid = 1000;
  EXPECT_EQ(0, RunTool(call).exit);
  EXPECT_FALSE(std::filesystem::exists(keyLog));
}

TEST_F(ToolTest, ThePromptTakesThePasswordUnseenAndGivesTheEchoBackAndOnlyAWillingTerminalGetsASpinner) {
  const std::pair<int, Words> rows[] = {
      {0, {"TERM=xterm"}}, {0, {"TERM=xterm", "NO_COLOR=1"}}, {SIGINT, {"TERM=dumb"}}};
  for (const auto& [signal, environment] : rows) {
    Cloud().QueueFault(kLoginPath, kivosim::Fault::Delay(std::chrono::milliseconds(300)));
    ToolProcess tool({{"login", "--email", kEmail}, "", environment, true});
    ASSERT_TRUE(tool.WaitFor("Password: "));
    EXPECT_FALSE(tool.EchoIsOn());
    signal == 0 ? tool.Type(std::string(kPassword) + "\n") : tool.Signal(signal);
    const Result result = tool.Wait();
    EXPECT_EQ(signal == 0 ? 0 : 130, result.exit) << result.err;
    EXPECT_THAT(result.err, Not(HasSubstr(kPassword)));
    EXPECT_TRUE(tool.EchoIsOn());
    EXPECT_EQ(environment == Words{"TERM=xterm"},
              result.err.find("Signing in as ann@example.com ... 0 s (limit 14 min)") != std::string::npos);
  }
}

TEST_F(ToolTest, APasswordArrivesByteForByteWithoutItsLastNewlineOrNotAtAll) {
  const struct {
    std::string input, sent;
    const char* mistake = nullptr;
  } inputs[] = {{"dos\r\n", "dos"},
                {"\xC3\xBC&=%+ \t\"'\\$`", "\xC3\xBC&=%+ \t\"'\\$`"},
                {std::string(4094, 'x') + "\n", std::string(4094, 'x')},
                {"\n", "(none)", "nothing"},
                {"two\nlines\n", "(none)", "more than one line"},
                {std::string("nul\0byte", 8), "(none)", "NUL byte"},
                {std::string(4096, 'x'), "(none)", "more than 4095 bytes"}};
  for (const auto& input : inputs) {
    Cloud().ClearJournal();
    const Result result = RunTool({kPiped, input.input});
    EXPECT_EQ(input.mistake ? 2 : 4, result.exit);
    EXPECT_THAT(result.err, HasSubstr(input.mistake ? input.mistake : "refused"));
    EXPECT_EQ(input.sent, LastPassword(Cloud()));
  }
}

TEST_F(ToolTest, ASecretFileIsOpenedWithTheCallersRightsAndRefusedWhereOthersCanReadIt) {
  const std::string path = "/tmp/tool test.password", folder = "/run/tool_test", variable = "CREDENTIALS_DIRECTORY=";
  const struct {
    mode_t mode;
    uid_t owner, caller;
    int exit;
  } files[] = {{0400, 0, 0, 0}, {0640, 0, 0, 7}, {0604, 0, 0, 7}, {0600, 1000, 0, 7}, {0600, 0, 1000, 2}};
  for (const auto& file : files) {
    SCOPED_TRACE(testing::Message() << std::oct << file.mode << " " << file.caller);
    Write(path, std::string(kPassword) + "\n", file.mode);
    ASSERT_EQ(0, chown(path.c_str(), file.owner, 0));
    Cloud().ClearJournal();
    const Result result = RunTool({With(kByEmail, {"--password-file", path, "--json"}), "", {}, false, file.caller, 0});
    EXPECT_EQ(file.exit, result.exit);
    EXPECT_EQ(file.exit == 0, Cloud().Connections() > 0);
    EXPECT_EQ(file.exit == 7, result.err.find("chmod 600 '" + path + "'") != std::string::npos);
  }
  std::filesystem::create_directories(folder);
  Write(folder + "/varnkivo.password", kPassword, 0440);
  EXPECT_EQ(0, RunTool({kByEmail, "", {variable + folder}}).exit);
  Write(folder + "/varnkivo.auth_key", AuthKey(), 0400);
  EXPECT_EQ(0, RunTool({{"login", "--key", "--user-id", kUserId, "--yes"}, "", {variable + folder}}).exit);
  RunTool({kPiped, "piped", {variable + folder}});
  EXPECT_EQ("piped", LastPassword(Cloud()));
  Write(folder + "/varnkivo.password", kPassword, 0444);
  EXPECT_EQ(7, RunTool({kByEmail, "", {variable + folder}}).exit);
}

TEST_F(ToolTest, NoSecretIsSeenInProcessesOutputsOrLogs) {
  std::string seen;
  {
    Cloud().QueueFault(kLoginPath, kivosim::Fault::NeverAnswer());
    ToolProcess tool({With(kByEmail, {"--password-stdin"}), std::string(kPassword) + "\n"});
    while (Cloud().Requests(kLoginPath).empty()) usleep(1000);
    const std::string process = "/proc/" + std::to_string(tool.Pid());
    seen += Read(process + "/cmdline") + Read(process + "/environ");
    EXPECT_THAT(seen, HasSubstr("--password-stdin"));  // it did look at the tool
  }
  for (const Words& more : {Words{}, {"--json"}, {"--verify-only"}}) {
    for (const char* password : {kPassword, "wrong horse"}) {
      const Result result = LogIn(more, password);
      seen += result.out + result.err;
    }
  }
  for (const Words& query : {Words{"status"}, {"whoami"}, {"paths"}, {"account", "show"}})
    seen += Tool(query).out + Tool(With(query, {"--json"})).out;
  seen += Read("/var/log/syslog") + Read("/usr/varn/var/log/events.jsonl");
  const std::string key = AuthKey();
  for (const std::string& secret : {std::string(kPassword), std::string("wrong horse"), key})
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
  EXPECT_EQ(key, Parse(Tool({"account", "show", "--json", "--show-secrets"}).out)["auth_key"].asString());
}

}  // namespace
}  // namespace tooltest
