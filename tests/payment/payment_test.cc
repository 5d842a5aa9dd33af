// The shop: what each call sends, byte for byte, what becomes of every answer, and what the scan finds.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <filesystem>

#include "account/account_bench.h"

using namespace accounttest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char kDigest[] = "5f4dcc3b5aa765d61d8327deb882cf99";  // MD5 of "password"
const std::string kHost = " payment.kivo.example ";

TEST(Payment, ArgumentsAreSentAsTheyStand) {
  const struct {
    const char *action, *args;
    std::string sent;
  } rows[] = {
      {"getItemList", R"({"n":2,"a":"x y&","t":true,"z":null})",
       "GET /api/getItemList.php?" + DeviceFields() + "&a=x%20y%26&n=2%0A&t=true%0A&z=null%0A" + kHost},
      {"GeTaPpItEmInFo", R"({"app":"photos"})", "GET /api/package/record?" + DeviceFields() + "&app=photos" + kHost},
      {"GETitemLIST", "{}", "GET /api/getItemList.php?" + DeviceFields() + kHost},
      {"AUTH", R"({"b":"1","a":"2"})", "POST /api/auth.php" + kHost + DeviceFields() + "&a=2&b=1"}};
  for (const auto& row : rows) {
    Bench bench;
    const auto action = static_cast<PAYMENT_ACTION>(VARNPaymentParseAction(row.action));
    bench.Answer("*", " the answer\n", 400);
    _tag_libkivo_varn_response_ response = {77, 0, nullptr};
    EXPECT_EQ(0, VARNPaymentHTTPSSendWithJSON(action, ParseJson(row.args), &response));
    EXPECT_THAT(bench.Sent(), ElementsAre(row.sent));
    EXPECT_EQ(77, response.curl_code);
    EXPECT_EQ(400, response.http_status);
    EXPECT_STREQ("the answer", response.body);
    VARNKIVOHttpsResponseFree(&response);
  }
  for (const char* none : {"auths", "getitem", "", static_cast<const char*>(nullptr)})
    EXPECT_EQ(3, VARNPaymentParseAction(none));
}

TEST(Payment, WhatCannotBeSentSendsNothing) {
  const struct {
    int action;
    std::string args;
    int code;
    std::string message;
  } rows[] = {{3, "{}", KIVO_ERR_BAD_PARAM, ""},
              {4, "{}", KIVO_ERR_BAD_PARAM, ""},
              {0, "[]", KIVO_ERR_BAD_JSON, "Wrong JSON format"},
              {0, R"({"a":"1","b":{}})", KIVO_ERR_BAD_JSON, ""},
              {0, R"({"a":[]})", KIVO_ERR_BAD_JSON, ""},
              {1, R"({"a":")" + std::string(5000, 'x') + "\"}", KIVO_ERR_SEND, "failed to send https request. err="}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args.substr(0, 40));
    Bench bench;
    _tag_libkivo_varn_response_ response = {1, 2, nullptr};
    EXPECT_EQ(-1,
              VARNPaymentHTTPSSendWithJSON(static_cast<PAYMENT_ACTION>(row.action), ParseJson(row.args), &response));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_EQ(2, response.http_status);
    if (row.message.empty())
      EXPECT_THAT(bench.device.Logs(), IsEmpty());
    else
      EXPECT_THAT(bench.device.LastLine(), StartsWith("payment_https_send_with_json " + row.message));
    EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
  }
}

TEST(Payment, SignInSendsTheDigestTwiceAndNeverThePassword) {
  for (const char* language : {static_cast<const char*>(nullptr), "enu"}) {
    Bench bench;
    bench.device.MustNotLog(kDigest);
    bench.Answer("*", R"({"code":"good"})");
    _tag_libkivo_varn_response_ response = {};
    EXPECT_EQ(0, VARNPaymentHTTPSAuth("a@b", "password", language, &response));
    const std::string credentials = std::string("&kivoID=a%40b&kivoPW=") + kDigest;
    EXPECT_THAT(bench.Sent(), ElementsAre("POST /api/auth.php" + kHost + DeviceFields("a@b", kDigest) + credentials +
                                          credentials + (language ? "&language=enu" : "")));
    EXPECT_STREQ(R"({"code":"good"})", response.body);
    VARNKIVOHttpsResponseFree(&response);
  }
}

TEST(Payment, HistorySendsItsFiltersAndMakesRows) {
  const std::string row = R"({"buyer_id":"b","date":"d","item":"i","model":"m","pay_status":null,)"
                          R"("price":9.9900000000000002,"serial":"s","transaction_id":7})";
  const std::string entries = R"("entries":[{"create_at":"d","app":"i","paypal_id":"b","transaction_id":7,"model":"m",)"
                              R"("serial":"s","price":9.99,"pay_status":null,"more":1}])";
  for (const bool filtered : {true, false}) {
    Bench bench;
    bench.SignIn(0);
    bench.Answer("*", R"({"code":"good",)" + (filtered ? entries : R"("entries":{"a":1})") + "}");
    Json::Value out = "anything", none, apps = ParseJson(R"(["a","b c"])"), prices = ParseJson("[9.5,0]");
    EXPECT_EQ(0, VARNKIVOAccountPurchaseList("enu", filtered ? "2020-01-01" : nullptr, nullptr, filtered ? apps : none,
                                             none, filtered ? prices : out, none, out));
    EXPECT_THAT(bench.Sent(), ElementsAre("POST /api/query.php" + kHost + DeviceFields() +
                                          "&action=get_history&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D" +
                                          "&serial_no=2040VKN000001&language=enu" +
                                          (filtered ? "&dates=2020-01-01%2C&apps=a%2Cb%20c&prices=9.5%2C0" : "")));
    EXPECT_EQ(R"({"logs":[)" + (filtered ? row : "") + R"(],"offset":0,"total":)" + (filtered ? "1}" : "0}"),
              JsonText(out));
    apps.append(Json::objectValue);
    EXPECT_EQ(-1, VARNKIVOAccountPurchaseList("enu", nullptr, nullptr, apps, none, none, none, out));
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
    EXPECT_EQ(1u, bench.cloud.Requests().size());
  }
}

TEST(Scan, TellsWhatIsTiedAndLeavesOutWhatCannotBeRead) {
  const std::string relay = "/usr/varn/etc/varnrelayd/varnrelayd.conf", ddns = "/usr/varn/sbin/varnddnsinfo";
  std::filesystem::create_directories("/usr/varn/etc/varnrelayd");
  const std::string good = R"({"server_alias":{"alias":"home"},"server_kivo":{"account":"a@b"}})";
  const std::string package = R"({"type":"package","value":"Antivirus by McAfee"})", fails = "exit 3";
  const std::string far = R"({"type":"farlink","value":"home"})", dyn = R"({"type":"ddns","value":"host"})";
  const struct {
    std::string record, relay, ddns, services;
  } rows[] = {{"kivoID=a@b|kivoPW=p", good,
               "case $1 in --get-varn-account) printf a@b;; --get-varn-hostname) printf host;; esac",
               package + "," + far + "," + dyn},
              {"kivoID=a@b|kivoPW=", good, fails, far},
              {"kivoPW=p", R"({"server_alias":{"alias":"home"},"server_kivo":{"account":""}})", fails, ""},
              {"", R"({"server_alias":[],"server_kivo":"a@b"})", fails, ""},
              {"", "{", fails, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.record + row.relay);
    Bench bench;
    WriteRecord(Lines(row.record));
    WriteFile(relay, row.relay);
    unlink(ddns.c_str());
    WriteFile(ddns, "#!/bin/sh\n" + row.ddns + "\n");
    EXPECT_EQ(0, chmod(ddns.c_str(), 0755));
    Json::Value result = "replaced";
    EXPECT_EQ(0, VARNKIVOAccountScanExisting(result));
    EXPECT_EQ(row.services.empty() ? "{}" : R"({"a@b":{"services":[)" + row.services + "]}}", JsonText(result));
    EXPECT_EQ(row.ddns == fails ? "Failed to execute ddns command, option=--get-varn-account" : "",
              bench.device.LastLog());
  }
}

}  // namespace
