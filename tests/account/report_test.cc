// The periodic report: what each answer leaves on disk, in the job and in the notifications.
#include <gtest/gtest.h>
#include <unistd.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using varnkivo::User;

namespace {

constexpr char kReport[] = "device/api/report";

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

TEST(Report, EachAnswerMovesTheJobRenewsTheTokenOrSignsOut) {
  const std::string good = R"({"code":"good"})", moved = R"({"code":"good","report_cron_timestring":"7 3 * * 2"})";
  const std::string cannotSet = "Failed to set report cron timestring: ", cannotAdd = "Failed to add crontab for kivo";
  const std::string gone = R"({"code":"account_not_found","report_cron_timestring":"1 2 * * *"})";
  const std::string badauth = R"({"code":"badauth","report_cron_timestring":"1 2 * * *"})", logout = "a refused logout";
  const std::string forced =
      R"(kivo_force_logout {"%EMAIL%":"ann@example.com","%LINK%":"https://account.kivo.example"})";
  const std::string deleted = R"(kivo_deletion_logout {"%EMAIL%":"ann@example.com"})";
  const std::string out = "~ 9~16 * * 1~5", old = "5 4 * * *";
  const struct {
    std::string body, schedule, job, logged;
    int age = kHour;         // of the token
    std::string fails = "";  // a call, or the renewal by an answer or by a file that has no number
    int code = KIVO_ERR_SUCCESS;
    std::string notification = "";
  } rows[] = {
      {good, old, old, ""},
      {moved, "7 3 * * 2", "7 3 * * 2", "", kHour + 1},
      {moved, "7 3 * * 2", "7 3 * * 2", "Failed to renew token: ", kHour + 1, "renewal"},
      {moved, "7 3 * * 2", "7 3 * * 2", "Failed to renew token: ", kHour + 1, "conversion"},
      {R"({"code":"good","report_cron_timestring":"7 3 * *\n* * * * * root sh"})", "7 3 * *\n* * * * * root sh", "",
       cannotAdd},
      {R"({"code":"good","report_cron_timestring":{}})", old, old, cannotSet},
      {good, old, "", cannotAdd, kHour, "ConfigManager::Save"},
      {R"({"code":"badparam","report_cron_timestring":"1 2 * * *"})", "1 2 * * *", old,
       "Failed to query service check, resp=", kHour, "", KIVO_ERR_BAD_PARAM},
      {badauth, out, "", "Failed to auth [ann@example.com] on regularly report, auto logout.", 0, "", KIVO_ERR_AUTH,
       forced},
      {gone, out, "", "Logged out Varnholt Account: ann@example.com", 0, "", KIVO_ERR_ACCOUNT_NOT_FOUND, deleted},
      {gone, "1 2 * * *", old, "Failed to logout: ", 0, logout, KIVO_ERR_ACCOUNT_NOT_FOUND, deleted}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body + row.fails);
    ReportBench bench(row.age);
    bench.Answer(kReport, row.body);
    if (row.fails == "renewal") bench.Answer(kTokenPath, "<html>");
    if (row.fails == "conversion")  // an exception that is not the library's own
      WriteTokenFile(R"({"access_token":"a","id_token":"i","refresh_token":"r","created_at":"x","expires_in":3600})");
    if (row.fails == logout) bench.Answer(kLogoutPath, R"({"code":"badsys"})");
    if (row.fails[0] == 'C') bench.device.FailNext(row.fails, 1, 0);
    const std::string tokens = ReadFile(kTokenFile);
    EXPECT_EQ(row.code ? -1 : 0, VARNKIVOReportInfo());
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_EQ(row.schedule, User().GetReportCronTimestring());
    const std::string job = ReadFile(kCronJob), line = row.job + " root /usr/varn/bin/varnkivo --report_info\n";
    EXPECT_EQ(!row.job.empty(), job.find(line) != std::string::npos) << job;
    EXPECT_EQ(row.logged.empty(), bench.device.Logs().empty()) << bench.device.LastLog();
    EXPECT_TRUE(row.logged.empty() || bench.device.HasLog(row.logged));
    EXPECT_EQ(row.notification, Notification());
    const bool refused = row.code == KIVO_ERR_AUTH || row.code == KIVO_ERR_ACCOUNT_NOT_FOUND;
    EXPECT_TRUE(!row.code || bench.device.LastLog().find("Failed to query service check, resp=" + row.body) == 0);
    EXPECT_EQ(refused ? 1u : 0u, bench.cloud.Requests(kLogoutPath).size());
    EXPECT_EQ(row.age > kHour && row.fails != "conversion" ? 1u : 0u, bench.cloud.Requests(kTokenPath).size());
    const bool signedOut = row.schedule == out, renewed = row.age > kHour && row.fails.empty();
    EXPECT_EQ(!signedOut, User().Exists() && IsThere(kTokenFile));
    EXPECT_EQ(signedOut || renewed, tokens != ReadFile(kTokenFile));
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

}  // namespace
