// The report by hand and by schedule, and what the device remembers of it: the last report, the last forced sign-out.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using std::chrono::hours;
using testing::HasSubstr;
using testing::Not;

constexpr char kFolder[] = "/usr/varn/var/lib/varnkivo";
constexpr char kHistory[] = "/usr/varn/var/lib/varnkivo/history.json";
constexpr char kLock[] = "/usr/varn/var/lib/varnkivo/history.lock";
constexpr char kReportPath[] = "device/api/report", kLogoutPath[] = "device/api/logout";
constexpr char kSettings[] = "/etc/varninfo.conf";
constexpr char kBadAuth[] = R"({"code":"badauth"})", kGood[] = R"({"code":"good"})";

class ReportTest : public ToolTest {
 protected:
  ReportTest() { Forget(); }
  ~ReportTest() override { Forget(), Write(kSettings, "language=\"enu\"\n"); }

  static void Forget() {
    std::filesystem::remove_all(kFolder);
    EXPECT_TRUE(std::filesystem::create_directory(kFolder) && chown(kFolder, 934, 934) == 0);
  }
  static void SignIn(std::chrono::seconds tokenAge = std::chrono::seconds(0)) { SignInLongAgo(), StoreToken(tokenAge); }
  static Json::Value Status() {
    const Result result = Tool({"status", "--json"});
    EXPECT_EQ("", CheckDocument("status", result.out));
    return Parse(result.out);
  }
  static Json::Value ForcedSignOut() { return Status()["last_forced_sign_out"]; }
  /// There, whole, nobody else's to read, nor its lock, and no other file beside them.
  static void ExpectHistory() {
    for (const char* path : {kHistory, kLock}) {
      struct stat facts {};
      ASSERT_EQ(0, stat(path, &facts));
      EXPECT_TRUE(facts.st_mode == 0100600 && facts.st_uid == 934 && facts.st_gid == 934) << path;
    }
    EXPECT_EQ("", CheckDocument("history", Read(kHistory)));
    EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(kFolder), {}));
  }
};

TEST_F(ReportTest, TheDryRunTellsWhatIsSentThenAndAsksNobody) {
  SignIn();
  const std::string before = Snapshot();
  const Result dry = Tool({"report", "--dry-run", "--json"}), text = Tool({"report", "--dry-run"});
  EXPECT_EQ("", CheckDocument("report-dry-run", dry.out));
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(before, Snapshot());
  const Result sent = Tool({"report", "--json"});
  EXPECT_EQ("", CheckDocument("report", sent.out));
  const auto request = Cloud().Requests(kReportPath).at(0);
  const Json::Value plan = Parse(dry.out);
  EXPECT_EQ("https://" + request.host + request.target, plan["host"].asString() + "/" + plan["path"].asString());
  std::string fields;
  for (const Json::Value& field : plan["fields"])
    fields += field["name"].asString() + "=" + field["value"].asString() + "\n";
  std::string expected;
  for (const auto& [name, value] : request.form) {
    const bool secret = name == "auth_key" || name == "lu_token";
    expected += name + "=" + (secret ? value.substr(0, 10) + "..." : value) + "\n";
    EXPECT_EQ(secret, (dry.out + text.out + sent.out).find(value) == std::string::npos) << name;
  }
  EXPECT_EQ(expected, fields);
}

TEST_F(ReportTest, NothingToReportSendsNothingAndAnUnusableScheduleIsNoted) {
  EXPECT_EQ("nobody_signed_in", Parse(Tool({"report", "--json"}).out)["result"].asString());
  SignIn();
  Write(kSettings, "kivo_disable_report=\"yes\"\n");
  EXPECT_EQ("switched_off", Parse(Tool({"report", "--json"}).out)["result"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_FALSE(std::filesystem::exists(kHistory));
  Write(kSettings, "");
  for (const char* schedule : {"@weekly", "99 9 * * *"}) {
    const std::string answer = std::string(R"({"code":"good","report_cron_timestring":")") + schedule + "\"}";
    Cloud().QueueFault(kReportPath, Fault::Answer(200, answer));
    const Result result = Tool({"report"});
    EXPECT_EQ(0, result.exit);
    EXPECT_THAT(result.err, HasSubstr(std::string("the schedule \"") + schedule + "\" c"));
  }
}

TEST_F(ReportTest, EveryAnswerHasItsExitCodeAndIsRemembered) {
  const struct {
    int status;
    const char* body;
    int exit, code;
    bool signedOut;
    const char* cause;
  } answers[] = {{200, kGood, 0, 0, false, "accepted"},
                 {503, "down", 5, 4, false, "could not be reached"},
                 {400, kBadAuth, 4, 14, true, "no longer accepts"},
                 {400, R"({"code":"account_not_found"})", 4, 25, true, "no longer exists"}};
  for (const auto& answer : answers) {
    for (const bool scheduled : {false, true}) {
      SCOPED_TRACE(std::to_string(answer.code) + (scheduled ? " scheduled" : " by hand"));
      Forget();
      SignIn();
      Cloud().QueueFault(kReportPath, Fault::Answer(answer.status, answer.body));
      const mode_t mask = umask(0777);
      const Result result = scheduled ? Tool({"--report_info"}) : Tool({"report", "--json"});
      umask(mask);
      EXPECT_EQ(answer.exit, result.exit);
      EXPECT_EQ(scheduled, (result.out + result.err).empty());
      ExpectHistory();
      const Json::Value status = Status();
      EXPECT_EQ(answer.code, status["last_report"]["library_code"].asInt());
      EXPECT_NE(answer.signedOut, status["signed_in"].asBool());
      EXPECT_EQ(answer.signedOut ? kEmail : "", status["last_forced_sign_out"]["email"].asString());
      const std::string text = Tool({"status"}).out;
      EXPECT_THAT(text, HasSubstr(answer.cause));
      EXPECT_EQ(answer.signedOut, text.find("Signed out by the account centre 20") != std::string::npos) << text;
    }
  }
}

TEST_F(ReportTest, AForcedSignOutIsRememberedWhoeverNoticesIt) {
  const std::pair<Words, int> verbs[] = {
      {{"token"}, 22}, {{"exec", "--", "true"}, 22}, {{"report"}, 22}, {{"account", "show", "--refresh"}, 3}};
  for (const auto& [verb, code] : verbs) {
    SCOPED_TRACE(verb[0]);
    Forget();
    SignIn(hours(2));
    if (verb[0] == "report") Cloud().QueueFault(kReportPath, Fault::Answer(200, kGood));
    Cloud().Revoke(kEmail);
    Cloud().RevokeTokens(kEmail);
    Cloud().QueueFault(kLogoutPath, Fault::Answer(200, "{}"));
    const Result result = Tool(verb);
    EXPECT_EQ(3, result.exit);
    EXPECT_EQ("", Read(kRecord));
    ExpectHistory();
    EXPECT_EQ(code, ForcedSignOut()["library_code"].asInt());
  }
  Forget();  // a sign-out that the account centre does not take is none
  SignIn();
  Cloud().QueueFault(kReportPath, Fault::Answer(400, kBadAuth));
  Cloud().TakeDown(kLogoutPath);
  const Json::Value error = ErrorOf(Tool({"report", "--json"}));
  EXPECT_THAT(error["device_next"].asString(), HasSubstr("stays signed in, and is refused again"));
  EXPECT_EQ("varnkivo logout --local", error["run"].asString());
  EXPECT_TRUE(ForcedSignOut()["library_code"].isNull());
}

TEST_F(ReportTest, ASignOutOnPurposeDuringAnOperationIsNoForcedOne) {
  const struct {
    Words verb;
    const char* path;
    int status;
    const char* answer;
    int exit;
    const char* words;
  } operations[] = {{{"report"}, kReportPath, 200, kGood, 0, "Reported as"},
                    {{"token"}, kTokenPath, 401, "{}", 3, "in the meantime"},
                    {{"account", "show", "--refresh"}, kQueryPath, 400, kBadAuth, 3, "in the meantime"}};
  for (const auto& operation : operations) {
    SCOPED_TRACE(operation.verb[0] + operation.answer);
    Forget();
    SignIn(hours(operation.verb[0] == "token" ? 2 : 0));
    Fault fault = Fault::Answer(operation.status, operation.answer);
    fault.skipHandler = true;
    fault.framing = kivosim::Framing::kUntilClose;  // the client knows the answer's end by the end of the connection
    fault.onSent = [] { EXPECT_EQ(0, Tool({"logout", "--local", "--yes"}).exit); };
    Cloud().QueueFault(operation.path, fault);
    const Result result = Tool(operation.verb);
    EXPECT_EQ(operation.exit, result.exit);
    EXPECT_THAT(result.out + result.err, HasSubstr(operation.words));
    ExpectHistory();
    EXPECT_TRUE(ForcedSignOut()["library_code"].isNull());
  }
}

TEST_F(ReportTest, WritersTakeTurnsAndKeepEachOthersPart) {
  SignIn();
  EXPECT_EQ("", Tool({"report"}).err);
  const int lock = open(kLock, O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(0, flock(lock, LOCK_EX));
  ToolProcess report({{"report"}});
  const std::filesystem::path process = "/proc/" + std::to_string(report.Pid());
  std::error_code ended;
  while (std::filesystem::read_symlink(process / "exe", ended).filename() != "varnkivo") usleep(1000);  // still a fork
  for (bool waits = false; !waits && !std::filesystem::read_symlink(process / "exe", ended).empty();)
    for (const auto& file : std::filesystem::directory_iterator(process / "fd", ended))
      waits |= std::filesystem::read_symlink(file, ended) == kLock;
  Write(kHistory, R"({"last_forced_sign_out":{"noticed_epoch":1000000000,"library_code":25,"current":true}})");
  close(lock);
  EXPECT_EQ("", report.Wait().err);
  EXPECT_TRUE(Status()["last_report"]["accepted"].asBool());
  EXPECT_EQ(25, ForcedSignOut()["library_code"].asInt());
}

TEST_F(ReportTest, ABrokenHistoryIsReplacedAndOneThatCannotBeWrittenChangesNoExitCode) {
  SignIn();
  for (const std::string& broken : {std::string("{\"last_report\":[1]}"), std::string(5000, '[')}) {
    Write(kHistory, broken);
    Write(std::string(kHistory) + ".new", "left by a killed process");
    EXPECT_TRUE(Status()["last_report"]["accepted"].isNull());
    EXPECT_EQ(0, Tool({"report"}).exit);
    ExpectHistory();
  }
  const std::string foreign = "/usr/varn/tool_test_foreign";
  Write(foreign, "", 0644);
  for (const auto link : {symlink, ::link}) {
    struct stat facts {};
    std::filesystem::remove(kLock);
    EXPECT_EQ(0, link(foreign.c_str(), kLock));
    const Result trapped = Tool({"report"});
    EXPECT_EQ(0, trapped.exit);
    EXPECT_THAT(trapped.err, HasSubstr("history.json could not be written"));
    ASSERT_EQ(0, stat(foreign.c_str(), &facts));
    EXPECT_TRUE(facts.st_uid == 0 && facts.st_mode == 0100644);
  }
  std::filesystem::remove(foreign);
}

}  // namespace
}  // namespace tooltest
