// The periodic report: what is sent, and what each answer leaves on disk, in the job and in the notifications.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <thread>

#include "pkce/token_bench.h"
#include "process.h"
#include "sim/device_token.h"

using namespace tokentest;
using kivosim::Fault;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using varnkivo::User;

namespace {

constexpr char kReport[] = "device/api/report", kNotifications[] = "/usr/varn/var/log/notifications.jsonl";
constexpr char kCommand[] = " root /usr/varn/bin/varnkivo --report_info\n";

/// Signed in with tokens `age` seconds old and a job at the record's schedule.
struct ReportBench : TokenBench {
  explicit ReportBench(int age = 0) {
    unlink(kNotifications);
    SignIn(0);
    StoreTokens(age);
    User().SetReportCronTimestring("5 4 * * *");
    EXPECT_TRUE(VARNKIVOAccountRegisterCrond());
    device.ForgetCalls();
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
  }
  /// The next report has this answer, and the simulator does nothing about it.
  void Answer(const std::string& body, int status = 200) {
    Fault fault = Fault::Answer(status, body);
    fault.skipHandler = true;
    cloud->QueueFault(kReport, fault);
  }
  /// "TAG PARAMS" of the one notification, or "".
  static std::string Notification() {
    const std::string text = ReadFile(kNotifications);
    if (text.empty()) return "";
    const Json::Value sent = ParseJson(text);
    return sent["tag"].asString() + " " + JsonText(sent["params"]);
  }
};

TEST(Report, SendsItsFiveFieldsAndNothingMore) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  ReportBench bench;
  bench.Answer(R"({"code":"good"})");
  EXPECT_EQ(0, VARNKIVOReportInfo());
  const auto requests = bench.cloud.Requests();
  ASSERT_EQ(1u, requests.size());
  EXPECT_EQ("POST /device/api/report account.kivo.example",
            requests[0].method + " " + requests[0].target + " " + requests[0].host);
  EXPECT_EQ("lu_sn=2040VKN000001&lu_token=" + kivosim::DeviceToken(kSerial, "", "") +
                "&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D&timezone=Europe%2FBerlin"
                "&serial_no=2040VKN000001&lu_info=",
            requests[0].body);
  EXPECT_THAT(bench.device.Calls("CURLOPT_TIMEOUT("), ElementsAre("CURLOPT_TIMEOUT(120)"));
}

TEST(Report, NobodySignedInOrOptedOutSendsNothing) {
  for (const std::string value : {"yes", "no", "YES", "true", ""}) {
    SCOPED_TRACE(value);
    ReportBench bench;
    WriteFile(kDeviceConf, "kivo_disable_report=\"" + value + "\"\n");
    if (value != "yes") bench.Answer(R"({"code":"good"})");
    EXPECT_EQ(0, VARNKIVOReportInfo());
    EXPECT_EQ(value == "yes" ? 0u : 1u, bench.cloud.Requests(kReport).size());
  }
  const Bench nobody;
  EXPECT_EQ(0, VARNKIVOReportInfo());
  EXPECT_EQ(KIVO_ERR_NO_ACCOUNT, VARNKIVOErrGet());
  EXPECT_THAT(nobody.cloud.Requests(), IsEmpty());
}

TEST(Report, FailingStepGivesItsCodeAndMessageAndSendsNothing) {
  const struct {
    std::string call;
    int before, result, code;
    std::string message;
  } steps[] = {{"VARNKIVOServerConfigGet", 0, -1, KIVO_ERR_SERVER_CONFIG, "VARNKIVOServerConfigGet, code=6"},
               {"VARNZoneGet", 0, -1, KIVO_ERR_SUCCESS, "failed to get time zone, size need: "},
               {"VLIBCSzHashAlloc", 1, 0, KIVO_ERR_SYSTEM, "Failed to alloc pTZInfo, err=[0x0700 fake.c:1]"},
               {"VARNZoneGetInfo", 0, 0, KIVO_ERR_SYSTEM, "failed to get timezone info[0x0700 fake.c:1]"},
               {"VARNZoneGetInfo", 0, 1, KIVO_ERR_SYSTEM, "failed to get tmz[0x0700 fake.c:1]"},
               {"VLIBGetSerialNumber", 0, -1, KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x0700 fake.c:1]"},
               {"VLIBCSzHashAlloc", 2, 0, KIVO_ERR_SYSTEM, "Failed to alloc https request, err=[0x0700 fake.c:1]"}};
  for (const auto& step : steps) {
    SCOPED_TRACE(step.message);
    ReportBench bench;
    bench.device.FailAfter(step.call, step.before, step.result);
    EXPECT_EQ(-1, VARNKIVOReportInfo());
    EXPECT_EQ(step.code, VARNKIVOErrGet());
    EXPECT_THAT(bench.device.LastLine(), StartsWith("kivo_report_info " + step.message));
    EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
  }
}

TEST(Report, AnyOtherAnswerKeepsTheSignIn) {
  const struct {
    int status;
    std::string body;
    int code;
    std::string message;  // of the last line; empty: none at all
    std::string schedule = "5 4 * * *";
  } rows[] = {
      {503, "", KIVO_ERR_SEND, "Failed to send https request. err=[0x"},
      {200, "<html>", KIVO_ERR_BAD_JSON, "Failed to parse json: <html>"},
      {200, "{}", KIVO_ERR_RESPONSE, ""},
      {200, R"(["code"])", KIVO_ERR_RESPONSE, ""},
      {200, R"({"code":14})", KIVO_ERR_UNKNOWN, R"(Failed to query service check, resp={"code":14})"},
      {400, R"({"code":"badsys"})", KIVO_ERR_SYSTEM, R"(Failed to query service check, resp={"code":"badsys"})"},
      {200, R"({"code":"badparam","report_cron_timestring":"1 2 * * *"})", KIVO_ERR_BAD_PARAM,
       "Failed to query service check, resp=", "1 2 * * *"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    ReportBench bench;
    const std::string job = ReadFile(kCronJob);
    bench.Answer(row.body, row.status);
    EXPECT_EQ(-1, VARNKIVOReportInfo());
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_THAT(bench.device.LastLog(), StartsWith(row.message));
    EXPECT_EQ(row.message.empty(), bench.device.Logs().empty());
    EXPECT_EQ(row.schedule, User().GetReportCronTimestring());
    EXPECT_EQ(job, ReadFile(kCronJob));
    EXPECT_EQ("1001 " + std::string(kAuthKey), User().GetUserId() + " " + User().GetAuthKey());
    EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
    EXPECT_EQ("", ReportBench::Notification());
    EXPECT_EQ(1u, bench.cloud.Requests().size());
  }
}

TEST(Report, AcceptedOneMovesTheJobAndRenewsAnExpiredToken) {
  const std::string good = R"({"code":"good"})";
  const auto pushed = [](const std::string& value) {
    return R"({"code":"good","report_cron_timestring":)" + value + "}";
  };
  const struct {
    std::string body, schedule, job, logged;
    int age = kHour;
    std::string call = "";  // that fails
  } rows[] = {
      {good, "5 4 * * *", "5 4 * * *", ""},
      {pushed("\"7 3 * * 2\""), "7 3 * * 2", "7 3 * * 2", ""},
      {pushed("\"7 3 * * 2\""), "7 3 * * 2", "7 3 * * 2", "", kHour + 1},
      {pushed("\"7 3 * *\\n* * * * * root sh\""), "7 3 * *\n* * * * * root sh", "", "Failed to add crontab for kivo"},
      {pushed("{}"), "5 4 * * *", "5 4 * * *", "Failed to set report cron timestring: "},
      {pushed("\"7 3 * * 2\""), "5 4 * * *", "5 4 * * *", "Failed to set report cron timestring: ", kHour,
       "VLIBCFileSetKeyValue"},
      {good, "5 4 * * *", "", "Failed to add crontab for kivo", kHour, "ConfigManager::Save"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body + row.call);
    ReportBench bench(row.age);
    bench.Answer(row.body);
    if (!row.call.empty()) bench.device.FailNext(row.call, 1, row.call == "ConfigManager::Save" ? 0 : -1);
    EXPECT_EQ(0, VARNKIVOReportInfo());
    EXPECT_EQ(row.schedule, User().GetReportCronTimestring());
    const std::string job = ReadFile(kCronJob);
    EXPECT_EQ(!row.job.empty(), job.find(row.job + kCommand) != std::string::npos) << job;
    EXPECT_EQ(row.logged.empty(), bench.device.Logs().empty()) << bench.device.LastLog();
    if (!row.logged.empty()) {
      EXPECT_THAT(bench.device.Logs(), Contains(StartsWith(row.logged)));
    }
    const auto paths =
        row.age > kHour ? std::vector<std::string>{kReport, kTokenPath} : std::vector<std::string>{kReport};
    std::vector<std::string> sent;
    for (const auto& request : bench.cloud.Requests()) sent.push_back(request.path.substr(1));
    EXPECT_EQ(paths, sent);
  }
}

TEST(Report, ATokenThatCannotBeRenewedChangesNothing) {
  for (const std::string fault : {"conversion", "identity host"}) {
    SCOPED_TRACE(fault);
    ReportBench bench(kHour + 1);
    bench.Answer(R"({"code":"good"})");
    if (fault == "conversion")  // the file's text is no number: an exception that is not the library's own
      WriteTokenFile(R"({"access_token":"a","id_token":"i","refresh_token":"r","created_at":"x","expires_in":3600})");
    else
      bench.cloud->QueueFault(kTokenPath, Fault::Answer(200, "<html>"));
    const std::string tokens = ReadFile(kTokenFile);
    EXPECT_EQ(0, VARNKIVOReportInfo());
    EXPECT_THAT(bench.device.LastLine(), StartsWith("kivo_report_info Failed to renew token: "));
    EXPECT_EQ(tokens, ReadFile(kTokenFile));
    EXPECT_TRUE(User().Exists());
  }
}

TEST(Report, AnAnswerAfterASignOutTouchesNothing) {
  for (const char* code : {"good", "badauth"}) {
    SCOPED_TRACE(code);
    ReportBench bench;
    Fault fault = Fault::Answer(200, R"({"code":")" + std::string(code) + R"(","report_cron_timestring":"1 2 * * *"})");
    fault.skipHandler = true;
    fault.delay = std::chrono::seconds(1);
    bench.cloud->QueueFault(kReport, fault);
    std::thread other([&] {  // another account signs in while the report is on its way
      while (bench.cloud.Requests(kReport).empty()) std::this_thread::yield();
      WriteFile(kRecord, Lines("kivoID=bob@b|kivoIDSerial=2|lu_auth_key=bobs"));
      unlink(kCronJob);
    });
    EXPECT_EQ(*code == 'g' ? 0 : -1, VARNKIVOReportInfo());
    other.join();
    EXPECT_EQ("bob@b 2 bobs", User().GetEmail() + " " + User().GetUserId() + " " + User().GetAuthKey());
    EXPECT_EQ("~ 9~16 * * 1~5", User().GetReportCronTimestring());
    EXPECT_FALSE(IsThere(kCronJob));
    EXPECT_EQ("", ReportBench::Notification());
    EXPECT_EQ(1u, bench.cloud.Requests().size());
  }
}

TEST(Report, RefusedOneNotifiesAndSignsOut) {
  const struct {
    std::string code, fails;
    int expected;
    std::string notification;
  } rows[] = {
      {"badauth", "", KIVO_ERR_AUTH,
       R"(kivo_force_logout {"%EMAIL%":"ann@example.com","%LINK%":"https://account.kivo.example"})"},
      {"account_not_found", "", KIVO_ERR_ACCOUNT_NOT_FOUND, R"(kivo_deletion_logout {"%EMAIL%":"ann@example.com"})"},
      {"badauth", "notification", KIVO_ERR_AUTH, ""},
      {"account_not_found", "logout", KIVO_ERR_ACCOUNT_NOT_FOUND,
       R"(kivo_deletion_logout {"%EMAIL%":"ann@example.com"})"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code + " " + row.fails);
    ReportBench bench;
    bench.Answer(R"({"code":")" + row.code + R"(","report_cron_timestring":"1 2 * * *"})");
    if (row.fails == "notification") bench.device.FailNext("VARNSysNotifySendNotifiction");
    if (row.fails == "logout") bench.cloud->QueueFault(kLogoutPath, Fault::Answer(200, R"({"code":"badsys"})"));
    EXPECT_EQ(-1, VARNKIVOReportInfo());
    EXPECT_EQ(row.expected, VARNKIVOErrGet());
    EXPECT_EQ(row.notification, ReportBench::Notification());
    EXPECT_THAT(bench.device.Logs(), Contains("Failed to auth [ann@example.com] on regularly report, auto logout."));
    EXPECT_THAT(bench.device.LastLog(), StartsWith("Failed to query service check, resp={\"code\":\"" + row.code));
    const bool stays = row.fails == "logout";
    if (stays) {
      EXPECT_THAT(bench.device.Logs(), Contains(StartsWith("Failed to logout: ")));
    }
    EXPECT_EQ(1u, bench.cloud.Requests(kLogoutPath).size());
    EXPECT_EQ(stays, IsThere(kRecord));
    EXPECT_EQ(stays, IsThere(kCronJob));
    EXPECT_EQ(stays ? 1u : 0u, TokenFiles().size());
  }
}

}  // namespace
