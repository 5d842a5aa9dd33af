// The periodic report: what is sent, and what each answer leaves on disk, in the job and in the notifications.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using kivosim::Fault;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using varnkivo::User;

namespace {

constexpr char kReport[] = "device/api/report", kMoved[] = R"({"code":"good","report_cron_timestring":"7 3 * * 2"})";

/// Signed in with tokens `age` seconds old and a job at the record's schedule.
struct ReportBench : Bench {
  explicit ReportBench(int age = 0) {
    SignIn(0);
    StoreTokens(age);
    User().SetReportCronTimestring("5 4 * * *");
    EXPECT_TRUE(VARNKIVOAccountRegisterCrond());
    device.ForgetCalls();
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
  }
};

TEST(Report, SendsItsFiveFieldsUnlessNobodyIsSignedInOrItIsSwitchedOff) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  for (const std::string value : {"yes", "no", "YES", "true", ""}) {
    SCOPED_TRACE(value);
    ReportBench bench;
    WriteFile(kDeviceConf, "kivo_disable_report=\"" + value + "\"\n");
    if (value != "yes") bench.Answer(kReport, R"({"code":"good"})");
    EXPECT_EQ(0, VARNKIVOReportInfo());
    EXPECT_EQ(value == "yes" ? std::vector<std::string>()
                             : std::vector{"POST /device/api/report account.kivo.example " + DeviceFields() +
                                           "&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D"
                                           "&timezone=Europe%2FBerlin&serial_no=2040VKN000001&lu_info="},
              bench.Sent());
    EXPECT_EQ(value == "yes" ? 0u : 1u, bench.device.Calls("CURLOPT_TIMEOUT(120)").size());
  }
  const Bench nobody;
  EXPECT_EQ(0, VARNKIVOReportInfo());
  EXPECT_EQ(KIVO_ERR_NO_ACCOUNT, VARNKIVOErrGet());
  EXPECT_THAT(nobody.cloud.Requests(), IsEmpty());
}

TEST(Report, AnAnswerMovesTheJobAndAnAcceptedOneRenewsAnExpiredToken) {
  const std::string good = R"({"code":"good"})";
  const struct {
    std::string body, schedule, job, logged;
    int age = kHour;
    std::string call = "";  // that fails
  } rows[] = {
      {good, "5 4 * * *", "5 4 * * *", ""},
      {kMoved, "7 3 * * 2", "7 3 * * 2", ""},
      {kMoved, "7 3 * * 2", "7 3 * * 2", "", kHour + 1},
      {R"({"code":"good","report_cron_timestring":"7 3 * *\n* * * * * root sh"})", "7 3 * *\n* * * * * root sh", "",
       "Failed to add crontab for kivo"},
      {R"({"code":"good","report_cron_timestring":{}})", "5 4 * * *", "5 4 * * *",
       "Failed to set report cron timestring: "},
      {R"({"code":"badparam","report_cron_timestring":"1 2 * * *"})", "1 2 * * *", "5 4 * * *",
       "Failed to query service check, resp="},
      {kMoved, "5 4 * * *", "5 4 * * *", "Failed to set report cron timestring: ", kHour, "VLIBCFileSetKeyValue"},
      {good, "5 4 * * *", "", "Failed to add crontab for kivo", kHour, "ConfigManager::Save"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body + row.call);
    ReportBench bench(row.age);
    bench.Answer(kReport, row.body);
    if (!row.call.empty()) bench.device.FailNext(row.call, 1, row.call == "ConfigManager::Save" ? 0 : -1);
    EXPECT_EQ(row.body.find("badparam") == std::string::npos ? 0 : -1, VARNKIVOReportInfo());
    EXPECT_EQ(row.schedule, User().GetReportCronTimestring());
    const std::string job = ReadFile(kCronJob), line = row.job + " root /usr/varn/bin/varnkivo --report_info\n";
    EXPECT_EQ(!row.job.empty(), job.find(line) != std::string::npos) << job;
    EXPECT_EQ(row.logged.empty(), bench.device.Logs().empty()) << bench.device.LastLog();
    EXPECT_TRUE(bench.device.HasLog(row.logged) || row.logged.empty());
    EXPECT_EQ(row.age > kHour ? 1u : 0u, bench.cloud.Requests(kTokenPath).size());
  }
}

TEST(Report, ATokenThatCannotBeRenewedChangesNothing) {
  for (const bool conversion : {true, false}) {
    ReportBench bench(kHour + 1);
    bench.Answer(kReport, R"({"code":"good"})");
    if (conversion)  // the file's text is no number: an exception that is not the library's own
      WriteTokenFile(R"({"access_token":"a","id_token":"i","refresh_token":"r","created_at":"x","expires_in":3600})");
    else
      bench.Answer(kTokenPath, "<html>");
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
    bench.cloud->SetHook([&](const kivosim::Request&) {  // another account signs in while the report is on its way
      WriteFile(kRecord, Lines("kivoID=bob@b|kivoIDSerial=2|lu_auth_key=bobs"));
      unlink(kCronJob);
      return kivosim::Response{200, R"({"code":")" + std::string(code) + R"(","report_cron_timestring":"1 2 * * *"})"};
    });
    EXPECT_EQ(*code == 'g' ? 0 : -1, VARNKIVOReportInfo());
    EXPECT_EQ("bob@b 2 bobs", User().GetEmail() + " " + User().GetUserId() + " " + User().GetAuthKey());
    EXPECT_EQ("~ 9~16 * * 1~5", User().GetReportCronTimestring());
    EXPECT_FALSE(IsThere(kCronJob));
    EXPECT_EQ("", Notification());
    EXPECT_EQ(1u, bench.cloud.Requests().size());
  }
}

TEST(Report, RefusedOneNotifiesAndSignsOut) {
  const std::string forced =
      R"(kivo_force_logout {"%EMAIL%":"ann@example.com","%LINK%":"https://account.kivo.example"})";
  const std::string deleted = R"(kivo_deletion_logout {"%EMAIL%":"ann@example.com"})";
  const struct {
    std::string code, fails;
    int expected;
    std::string notification;
  } rows[] = {{"badauth", "", KIVO_ERR_AUTH, forced},
              {"account_not_found", "", KIVO_ERR_ACCOUNT_NOT_FOUND, deleted},
              {"badauth", "notification", KIVO_ERR_AUTH, ""},
              {"account_not_found", "logout", KIVO_ERR_ACCOUNT_NOT_FOUND, deleted}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.code + " " + row.fails);
    ReportBench bench;
    bench.Answer(kReport, R"({"code":")" + row.code + R"(","report_cron_timestring":"1 2 * * *"})");
    if (row.fails == "notification") bench.device.FailNext("VARNSysNotifySendNotifiction");
    const bool stays = row.fails == "logout";
    if (stays) bench.Answer(kLogoutPath, R"({"code":"badsys"})");
    EXPECT_EQ(-1, VARNKIVOReportInfo());
    EXPECT_EQ(row.expected, VARNKIVOErrGet());
    EXPECT_EQ(row.notification, Notification());
    EXPECT_THAT(bench.device.Logs(), Contains("Failed to auth [ann@example.com] on regularly report, auto logout."));
    EXPECT_THAT(bench.device.LastLog(), StartsWith("Failed to query service check, resp={\"code\":\"" + row.code));
    EXPECT_EQ(stays, bench.device.HasLog("Failed to logout: "));
    EXPECT_EQ(1u, bench.cloud.Requests(kLogoutPath).size());
    EXPECT_EQ(stays, IsThere(kRecord));
    EXPECT_EQ(stays, IsThere(kCronJob));
    EXPECT_EQ(stays ? 1u : 0u, TokenFiles().size());
  }
}

}  // namespace
