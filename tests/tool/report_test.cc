// The report by hand and by schedule, and what the device remembers of it: the last report, the last forced sign-out.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/user.h>

#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kFolder[] = "/usr/varn/var/lib/varnkivo";
constexpr char kHistory[] = "/usr/varn/var/lib/varnkivo/history.json";
constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kReportPath[] = "device/api/report", kLogoutPath[] = "device/api/logout";
constexpr char kSettings[] = "/etc/varninfo.conf";

class ReportTest : public ToolTest {
 protected:
  ReportTest() { Forget(); }
  ~ReportTest() override { Forget(), Write(kSettings, "language=\"enu\"\n"); }

  static void Forget() {
    std::filesystem::remove_all(kFolder);
    EXPECT_TRUE(std::filesystem::create_directory(kFolder) && chown(kFolder, 934, 934) == 0);
  }
  static void SignIn(std::chrono::seconds tokenAge = std::chrono::seconds(0)) {
    SignInLongAgo();
    Write(kTokenFile, Cloud().IssueTokens(kEmail, "kivo-device", kSerial, tokenAge).fileText, 0600);
    EXPECT_EQ(0, chown(kTokenFile, 934, 934));
  }
  static Json::Value Status() {
    const Result result = Tool({"status", "--json"});
    EXPECT_EQ("", CheckDocument("status", result.out));
    return Parse(result.out);
  }
  /// There, whole, nobody else's to read, and no other file beside it.
  static void ExpectHistory() {
    struct stat facts {};
    ASSERT_EQ(0, stat(kHistory, &facts));
    EXPECT_TRUE(facts.st_mode == 0100600 && facts.st_uid == 934 && facts.st_gid == 934);
    EXPECT_EQ("", CheckDocument("history", Read(kHistory)));
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(kFolder), {}));
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
  ASSERT_EQ(1u, Cloud().FindAccount(kEmail)->reports.size());
  const auto request = Cloud().Requests(kReportPath).at(0);
  const Json::Value plan = Parse(dry.out);
  EXPECT_EQ("https://" + request.host + request.target, plan["host"].asString() + "/" + plan["path"].asString());
  ASSERT_EQ(request.form.size(), plan["fields"].size());
  for (Json::ArrayIndex i = 0; i < plan["fields"].size(); ++i) {
    const auto& [name, value] = request.form[i];
    const bool secret = name == "auth_key" || name == "lu_token";
    const std::string shown = secret ? value.substr(0, 10) + "..." : value;
    EXPECT_EQ(name + "=" + shown, plan["fields"][i]["name"].asString() + "=" + plan["fields"][i]["value"].asString());
    EXPECT_THAT(text.out, HasSubstr(name + "=" + shown + "\n"));
    if (secret) {
      EXPECT_THAT(dry.out + text.out + sent.out, Not(HasSubstr(value)));
    }
  }
}

TEST_F(ReportTest, NothingToReportIsNoErrorAndLeavesNoTrace) {
  for (const std::string& result : {std::string("nobody_signed_in"), std::string("switched_off")}) {
    if (result == "switched_off") SignIn(), Write(kSettings, "kivo_disable_report=\"yes\"\n");
    EXPECT_THAT(Tool({"report"}).err, HasSubstr("Nothing to report"));
    EXPECT_EQ(result, Parse(Tool({"report", "--json"}).out)["result"].asString());
    const Result dry = Tool({"report", "--dry-run", "--json"});
    EXPECT_EQ("", CheckDocument("report-dry-run", dry.out));
    EXPECT_EQ(result, Parse(dry.out)["hindrance"].asString());
    EXPECT_EQ(0, Tool({"--report_info"}).exit);
    EXPECT_EQ(0u, Cloud().Connections());
    EXPECT_FALSE(std::filesystem::exists(kHistory));
  }
}

TEST_F(ReportTest, EveryAnswerHasItsExitCodeAndIsRemembered) {
  const struct {
    Fault fault;
    int exit, code;
    bool signedOut;
    const char* cause;
  } answers[] = {{Fault::Answer(200, R"({"code":"good"})"), 0, 0, false, "accepted"},
                 {Fault::Answer(503, "down"), 5, 4, false, "could not be reached"},
                 {Fault::Answer(200, "<html>"), 1, 2, false, "not JSON"},
                 {Fault::Answer(400, R"({"code":"badsys"})"), 7, 6, false, "badsys"},
                 {Fault::Answer(400, R"({"code":"badauth"})"), 4, 14, true, "no longer accepts"},
                 {Fault::Answer(400, R"({"code":"account_not_found"})"), 4, 25, true, "no longer exists"}};
  for (const auto& answer : answers) {
    for (const bool scheduled : {false, true}) {
      SCOPED_TRACE(std::to_string(answer.code) + (scheduled ? " scheduled" : " by hand"));
      Forget();
      SignIn();
      Cloud().QueueFault(kReportPath, answer.fault);
      const mode_t mask = umask(0777);
      const Result result = scheduled ? Tool({"--report_info"}) : Tool({"report", "--json"});
      umask(mask);
      EXPECT_EQ(answer.exit, result.exit);
      if (scheduled) {
        EXPECT_EQ("", result.out + result.err);
      }
      if (!scheduled && answer.exit != 0) {
        EXPECT_THAT(ErrorOf(result)["cause"].asString(), HasSubstr(answer.cause));
      }
      ExpectHistory();
      const Json::Value status = Status();
      EXPECT_EQ(answer.exit == 0, status["last_report"]["accepted"].asBool());
      EXPECT_EQ(answer.code, status["last_report"]["library_code"].asInt());
      EXPECT_NE(answer.signedOut, status["signed_in"].asBool());
      EXPECT_EQ(answer.signedOut ? kEmail : "", status["last_forced_sign_out"]["email"].asString());
      const std::string text = Tool({"status"}).out;
      EXPECT_THAT(text, HasSubstr(answer.cause));
      EXPECT_EQ(answer.signedOut, text.find("Signed out by the account centre 20") != std::string::npos) << text;
    }
  }
  varnkivo::User().SetUserId(kUserId), varnkivo::User().SetAuthKey("x");  // another program signs in
  EXPECT_FALSE(Status()["last_forced_sign_out"]["current"].asBool());
  ASSERT_EQ(0, Tool({"logout", "--local", "--yes"}).exit);
  EXPECT_THAT(Tool({"status"}).out, Not(HasSubstr("Signed out by")));
  EXPECT_EQ(25, Status()["last_forced_sign_out"]["library_code"].asInt());
}

TEST_F(ReportTest, OtherVerbsRememberAForcedSignOutToo) {
  const struct {
    std::vector<std::string> verb;
    int code;
  } verbs[] = {{{"token"}, 22}, {{"exec", "--", "true"}, 22}, {{"report"}, 22}, {{"account", "show", "--refresh"}, 3}};
  for (const auto& verb : verbs) {
    SCOPED_TRACE(verb.verb[0]);
    Forget();
    SignIn(std::chrono::hours(2));
    if (verb.verb[0] == "report") Cloud().QueueFault(kReportPath, Fault::Answer(200, R"({"code":"good"})"));
    Cloud().Revoke(kEmail);
    Cloud().RevokeTokens(kEmail);
    Cloud().QueueFault(kLogoutPath, Fault::Answer(200, "{}"));
    EXPECT_EQ(3, Tool(verb.verb).exit);
    ExpectHistory();
    EXPECT_EQ(verb.code, Status()["last_forced_sign_out"]["library_code"].asInt());
  }
  SignIn();
  std::filesystem::remove(kRecord);  // another program signs out
  EXPECT_FALSE(Status()["last_forced_sign_out"]["current"].asBool());

  Forget();  // a sign-out that the account centre does not take is none
  SignIn();
  Cloud().QueueFault(kReportPath, Fault::Answer(400, R"({"code":"badauth"})"));
  Cloud().TakeDown(kLogoutPath);
  EXPECT_THAT(ErrorOf(Tool({"report", "--json"}))["device_next"].asString(), HasSubstr("could not sign itself out"));
  EXPECT_TRUE(Status()["last_forced_sign_out"]["library_code"].isNull());
}

TEST_F(ReportTest, WritersTakeTurnsAndKeepEachOthersPart) {
  SignIn();
  const int folder = open(kFolder, O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(0, flock(folder, LOCK_EX));
  ToolProcess report({{"report"}});
  const std::filesystem::path process = "/proc/" + std::to_string(report.Pid());
  std::error_code ended;
  while (std::filesystem::read_symlink(process / "exe", ended).filename() != "varnkivo") usleep(1000);  // still a fork
  for (bool waits = false; !waits && !std::filesystem::read_symlink(process / "exe", ended).empty();) {
    for (const auto& file : std::filesystem::directory_iterator(process / "fd", ended)) {
      waits |= std::filesystem::read_symlink(file, ended) == kFolder;
    }
  }
  Write(kHistory, R"({"last_forced_sign_out":{"noticed_epoch":1000000000,"library_code":25,"current":true}})");
  close(folder);
  EXPECT_EQ("", report.Wait().err);
  EXPECT_TRUE(Status()["last_report"]["accepted"].asBool());
  EXPECT_EQ(25, Status()["last_forced_sign_out"]["library_code"].asInt());
  std::filesystem::remove(kRecord);
  EXPECT_FALSE(Status()["last_forced_sign_out"]["current"].asBool());  // somebody was signed in when it reported
}

TEST_F(ReportTest, ABrokenHistoryIsReplacedAndOneThatCannotBeWrittenChangesNoExitCode) {
  SignIn();
  for (const std::string& broken : {std::string("{\"last_report\":[1]}"), std::string("[[]]"), std::string(5000, '['),
                                    std::string("{\"last_report\":{\"ended_epoch\":\"x\"}}")}) {
    Write(kHistory, broken);
    Write(std::string(kHistory) + ".new", "left by a killed process");
    EXPECT_TRUE(Status()["last_report"]["accepted"].isNull());
    EXPECT_EQ(0, Tool({"report"}).exit);
    ExpectHistory();
  }
  std::filesystem::remove_all(kFolder);
  const Result text = Tool({"report"}), json = Tool({"report", "--json"}), scheduled = Tool({"--report_info"});
  EXPECT_EQ(0, text.exit + json.exit + scheduled.exit);
  EXPECT_THAT(text.err, HasSubstr("history.json could not be written"));
  EXPECT_EQ("", json.err + scheduled.out + scheduled.err);
}

}  // namespace
}  // namespace tooltest
