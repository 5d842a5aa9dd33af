// The shop: what each call sends, byte for byte, what becomes of every answer, and what the scan finds.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <filesystem>

#include "account/account_bench.h"
#include "process.h"
#include "sim/device_token.h"

using namespace accounttest;
using namespace testsupport;
using kivosim::Fault;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr char kHistory[] = "api/query.php";
constexpr char kDigest[] = "5f4dcc3b5aa765d61d8327deb882cf99";  // MD5 of "password"

/// Ann is signed in, and `body` answers whatever is asked next.
struct ShopBench : Bench {
  ShopBench() {
    SignIn(0);
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
  }
  void Answer(const std::string& body, int status = 200) {
    Fault fault = Fault::Answer(status, body);
    fault.skipHandler = true;
    cloud->QueueFault("*", fault);
  }
  /// "METHOD TARGET HOST BODY" of the one request.
  std::string Sent() const {
    const auto requests = cloud.Requests();
    if (requests.size() != 1) return std::to_string(requests.size()) + " requests";
    const auto& request = requests[0];
    return request.method + " " + request.target + " " + request.host + " " + request.body;
  }
};

/// The device's own fields, with the credentials that go into its token.
std::string DeviceFields(const std::string& id = "", const std::string& password = "") {
  return "lu_sn=2040VKN000001&lu_token=" + kivosim::DeviceToken(kSerial, id, password);
}

TEST(Payment, ActionsHaveTheirNamesInAnyCase) {
  const std::pair<const char*, int> rows[] = {
      {"auth", 0},           {"AUTH", 0},    {"getItemList", 1}, {"GETitemLIST", 1},    {"getAppItemInfo", 2},
      {"GETappITEMinfo", 2}, {"getitem", 3}, {"auths", 3},       {"package/record", 3}, {"", 3},
      {nullptr, 3}};
  for (const auto& [name, action] : rows) EXPECT_EQ(action, VARNPaymentParseAction(name)) << (name ? name : "null");
}

TEST(Payment, ArgumentsAreSentAsTheyStand) {
  const struct {
    PAYMENT_ACTION action;
    const char* args;
    std::string sent;
  } rows[] = {
      {PAYMENT_ACTION_GET_ITEM_LIST, R"({"n":2,"a":"x y&","t":true,"z":null})",
       "GET /api/getItemList.php?" + DeviceFields() + "&a=x%20y%26&n=2%0A&t=true%0A&z=null%0A payment.kivo.example "},
      {PAYMENT_ACTION_GET_APP_ITEM_INFO, R"({"app":"photos"})",
       "GET /api/package/record?" + DeviceFields() + "&app=photos payment.kivo.example "},
      {PAYMENT_ACTION_GET_ITEM_LIST, "{}", "GET /api/getItemList.php?" + DeviceFields() + " payment.kivo.example "},
      {PAYMENT_ACTION_AUTH, R"({"b":"1","a":"2"})",
       "POST /api/auth.php payment.kivo.example " + DeviceFields() + "&a=2&b=1"}};
  for (const auto& row : rows) {
    ShopBench bench;
    bench.Answer(" the answer\n", 400);
    _tag_libkivo_varn_response_ response = {77, 0, nullptr};
    EXPECT_EQ(0, VARNPaymentHTTPSSendWithJSON(row.action, ParseJson(row.args), &response));
    EXPECT_EQ(row.sent, bench.Sent());
    EXPECT_EQ(77, response.curl_code);
    EXPECT_EQ(400, response.http_status);
    EXPECT_STREQ("the answer", response.body);
    VARNKIVOHttpsResponseFree(&response);
    bench.Answer("x");
    EXPECT_EQ(0, VARNPaymentHTTPSSendWithJSON(row.action, ParseJson(row.args), nullptr));
  }
}

TEST(Payment, WhatCannotBeSentSendsNothing) {
  const struct {
    int action;
    std::string args, call;
    int code;
    std::string message;
  } rows[] = {
      {3, "{}", "", KIVO_ERR_BAD_PARAM, ""},
      {4, "{}", "", KIVO_ERR_BAD_PARAM, ""},
      {-1, "{}", "", KIVO_ERR_BAD_PARAM, ""},
      {0, "{}", "VARNKIVOServerConfigGet", KIVO_ERR_PAYMENT_CONFIG, ""},
      {0, "[]", "", KIVO_ERR_BAD_JSON, "Wrong JSON format"},
      {0, "{}", "VLIBCSzHashAlloc", KIVO_ERR_SYSTEM, "Failed to alloc https request, err=[0x0700 fake.c:1]"},
      {0, R"({"a":"1","b":{}})", "", KIVO_ERR_BAD_JSON, ""},
      {0, R"({"a":[]})", "", KIVO_ERR_BAD_JSON, ""},
      {1, R"({"a":")" + std::string(5000, 'x') + "\"}", "", KIVO_ERR_SEND, "failed to send https request. err="}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.args.substr(0, 40) + row.call);
    ShopBench bench;
    if (!row.call.empty()) bench.device.FailNext(row.call, 1, row.call == "VLIBCSzHashAlloc" ? 0 : -1);
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
  ShopBench bench;
  bench.Answer("down", 500);
  EXPECT_EQ(-1, VARNPaymentHTTPSSendWithJSON(PAYMENT_ACTION_AUTH, ParseJson("{}"), nullptr));
  EXPECT_EQ(KIVO_ERR_SEND, VARNKIVOErrGet());
}

TEST(Payment, SignInSendsTheDigestTwiceAndNeverThePassword) {
  for (const char* language : {static_cast<const char*>(nullptr), "enu"}) {
    ShopBench bench;
    bench.device.MustNotLog(kDigest);
    bench.Answer(R"({"code":"good"})");
    _tag_libkivo_varn_response_ response = {};
    EXPECT_EQ(0, VARNPaymentHTTPSAuth("a@b", "password", language, &response));
    const std::string credentials = std::string("kivoID=a%40b&kivoPW=") + kDigest;
    EXPECT_EQ("POST /api/auth.php payment.kivo.example " + DeviceFields("a@b", kDigest) + "&" + credentials + "&" +
                  credentials + (language ? "&language=enu" : ""),
              bench.Sent());
    EXPECT_STREQ(R"({"code":"good"})", response.body);
    VARNKIVOHttpsResponseFree(&response);
  }
  ShopBench bench;
  _tag_libkivo_varn_response_ response = {};
  EXPECT_EQ(-1, VARNPaymentHTTPSAuth(nullptr, "p", "l", &response));
  EXPECT_EQ(-1, VARNPaymentHTTPSAuth("a", nullptr, "l", &response));
  EXPECT_EQ(-1, VARNPaymentHTTPSAuth("a", "p", "l", nullptr));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
}

TEST(Payment, CredentialsComeFromTheRecord) {
  const struct {
    std::string record, call;
    int code;
    std::string message;
  } rows[] = {{"kivoID=a@b|kivoPW=secret \\\"1\\\"", "", 0, ""},
              {"", "", KIVO_ERR_NO_ACCOUNT, ""},
              {"kivoPW=secret", "", KIVO_ERR_NO_ACCOUNT, "key [kivoID] not found in "},
              {"kivoID=a@b|kivoPW=", "", KIVO_ERR_NO_ACCOUNT, "key [kivoPW] not found in "},
              {"kivoID=a@b|kivoPW=p", "VLIBCFileGetKeys", KIVO_ERR_NO_ACCOUNT, "VLIBCFileGetKeys() failed!! szFile=["}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.record + row.call);
    Bench bench;
    if (!row.record.empty()) WriteRecord(Lines(row.record));
    if (!row.call.empty()) bench.device.FailNext(row.call);
    _tag_kivo_INFO_ info = {};
    std::snprintf(info.name, sizeof info.name, "kept");
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    EXPECT_EQ(row.code ? -1 : 0, VARNPaymentKivoAccountGet(&info));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_STREQ("kept", info.name);
    EXPECT_STREQ(row.code ? "" : "a@b", info.email);
    EXPECT_STREQ(row.code ? "" : "secret \"1\"", info.password);
    EXPECT_THAT(bench.device.LastLine(), StartsWith(row.message.empty() ? "" : "kivo_config_get " + row.message));
  }
  EXPECT_EQ(-1, VARNPaymentKivoAccountGet(nullptr));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
}

TEST(Payment, HistorySendsItsFiltersAndMakesRows) {
  const Json::Value none;
  const std::string fixed = "POST /api/query.php payment.kivo.example " + DeviceFields() +
                            "&action=get_history&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D"
                            "&serial_no=2040VKN000001&language=enu";
  const struct {
    const char *from, *to, *apps, *prices;
    std::string sent;
  } rows[] = {
      {nullptr, nullptr, "null", R"({"a":1})", ""},
      {"2020-01-01", nullptr, R"(["a","b c"])", "[9.5,0]", "&dates=2020-01-01%2C&apps=a%2Cb%20c&prices=9.5%2C0"},
      {nullptr, "2021-01-01", "[]", "null", "&dates=%2C2021-01-01&apps="}};
  for (const auto& row : rows) {
    ShopBench bench;
    bench.Answer(
        R"({"code":"good","entries":[{"create_at":"d","app":"i","paypal_id":"b","transaction_id":7,"model":"m",)"
        R"("serial":"s","price":9.99,"pay_status":null,"more":1}]})");
    Json::Value out = "anything";
    EXPECT_EQ(0, VARNKIVOAccountPurchaseList("enu", row.from, row.to, ParseJson(row.apps), none, ParseJson(row.prices),
                                             none, out));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_EQ(fixed + row.sent, bench.Sent());
    EXPECT_EQ(
        R"({"logs":[{"buyer_id":"b","date":"d","item":"i","model":"m","pay_status":null,"price":9.9900000000000002,)"
        R"("serial":"s","transaction_id":7}],"offset":0,"total":1})",
        JsonText(out));
  }
}

TEST(Payment, HistoryLeavesTheResultAloneWhenItFails) {
  const struct {
    std::string call, apps, answer;
    int status, code;
    std::string message;
  } rows[] = {
      {"VARNKIVOServerConfigGet", "[]", "", 200, KIVO_ERR_SERVER_CONFIG, "VARNKIVOServerConfigGet, code=6"},
      {"VLIBGetSerialNumber", "[]", "", 200, KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x0700 fake.c:1]"},
      {"", R"(["a",{}])", "", 200, KIVO_ERR_BAD_PARAM, "Bad parameter"},
      {"", "[]", "down", 500, KIVO_ERR_SEND, "Failed to send https request. err=[0x"},
      {"", "[]", "<html>", 200, KIVO_ERR_BAD_JSON, "Failed to parse json: <html>"},
      {"", "[]", "[1]", 200, KIVO_ERR_RESPONSE, ""},
      {"", "[]", "{}", 200, KIVO_ERR_RESPONSE, ""},
      {"", "[]", R"({"code":"badauth"})", 200, KIVO_ERR_AUTH,
       R"(Failed to query purchase info, resp={"code":"badauth"})"},
      {"", "[]", R"({"code":"good\u0000x"})", 200, KIVO_ERR_UNKNOWN, "Failed to query purchase info, resp="},
      {"", "[]", R"({"code":"good","entries":["a"]})", 200, KIVO_ERR_RESPONSE, ""},
      {"", "[]", R"({"code":"good","entries":[{"price":"9.99"}]})", 200, KIVO_ERR_RESPONSE, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call + row.answer);
    ShopBench bench;
    if (!row.call.empty())
      bench.device.FailNext(row.call);
    else if (!row.answer.empty())
      bench.Answer(row.answer, row.status);
    Json::Value out = "kept", none;
    EXPECT_EQ(-1, VARNKIVOAccountPurchaseList("enu", nullptr, nullptr, ParseJson(row.apps), none, none, none, out));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_EQ(Json::Value("kept"), out);
    EXPECT_THAT(bench.device.LastLine(),
                StartsWith(row.message.empty() ? "" : "kivo_account_purchase_list " + row.message));
    EXPECT_EQ(row.answer.empty() ? 0u : 1u, bench.cloud.Requests().size());
  }
  for (const char* entries : {R"({"code":"good"})", R"({"code":"good","entries":{"a":1}})"}) {
    ShopBench bench;
    bench.Answer(entries);
    Json::Value out(Json::objectValue);
    EXPECT_EQ(0, VARNKIVOAccountPurchaseList("enu", nullptr, nullptr, out, out, out, out, out));
    EXPECT_EQ(R"({"logs":[],"offset":0,"total":0})", JsonText(out));
  }
  const Bench bench;
  Json::Value null, out("kept");
  EXPECT_EQ(-1, VARNKIVOAccountPurchaseList("enu", nullptr, nullptr, null, null, null, null, out));
  EXPECT_EQ(KIVO_ERR_NO_ACCOUNT, VARNKIVOErrGet());
  EXPECT_EQ(-1, VARNKIVOAccountPurchaseList(nullptr, nullptr, nullptr, null, null, null, null, out));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  EXPECT_EQ(-1, VARNKIVOAccountPurchaseList("enu", nullptr, nullptr, null, null, null, null, null));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
}

TEST(Payment, PageInfoNamesTheDevice) {
  Bench good;
  Json::Value info = "replaced";
  EXPECT_EQ(0, VARNKIVOGetIframeInfo(info));
  EXPECT_EQ(R"({"api_key":"ApiKey-0123456789-abcdefghij","mac":"02:00:5e:20:40:01","orig_serial_no":"2040VKN000001",)"
            R"("serial_no":"2040VKN000001","server_url":"https://account.kivo.example"})",
            JsonText(info));
  const struct {
    std::string call;
    int code;
    std::string message;
  } rows[] = {
      {"VARNKIVOServerConfigGet", KIVO_ERR_SERVER_CONFIG, "VARNKIVOServerConfigGet, code=6"},
      {"VLIBGetSerialNumber", KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x0700 fake.c:1]"},
      {"VLIBGetOriginalSerialNumber", KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x0700 fake.c:1]"},
      {"VARNLuinfoCloudServiceGetMacAddress", KIVO_ERR_MAC, "Failed to get mac address"},
      {"VARNCloudServiceGetApiKey", KIVO_ERR_INVALID_MACHINE, "Failed to get apikey, code: 28, cloudservice code: 9"}};
  for (const auto& row : rows) {
    Bench bench;
    bench.device.FailNext(row.call);
    if (row.code == KIVO_ERR_INVALID_MACHINE) bench.device.FailNext("VARNCloudServiceGetErrorCode", 2, 9);
    Json::Value out = "kept";
    EXPECT_EQ(-1, VARNKIVOGetIframeInfo(out));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_EQ(Json::Value("kept"), out);
    EXPECT_EQ("kivo_get_iframe_info " + row.message, bench.device.LastLine());
  }
}

TEST(Scan, FindsWhatIsTied) {
  const std::string relay = "/usr/varn/etc/varnrelayd/varnrelayd.conf", ddns = "/usr/varn/sbin/varnddnsinfo";
  for (const std::string& path : {relay, ddns})
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  const std::string good = R"({"server_alias":{"alias":"home"},"server_kivo":{"account":"a@b"}})";
  const std::string package = R"({"type":"package","value":"Antivirus by McAfee"})";
  const std::string far = R"({"type":"farlink","value":"home"})", dyn = R"({"type":"ddns","value":"host"})";
  const auto tool = [](const std::string& body) { return "#!/bin/sh\n" + body + "\n"; };
  const std::string both = "case $1 in --get-varn-account) printf a@b;; --get-varn-hostname) printf host;; esac";
  const struct {
    bool record;
    std::string relay, ddns, result;
    std::string logged = "Failed to open pipe";
  } rows[] = {{false, "", "", "{}"},
              {true, "", "", R"({"a@b":{"services":[)" + package + "]}}"},
              {false, good, "", R"({"a@b":{"services":[)" + far + "]}}"},
              {true, good, tool(both), R"({"a@b":{"services":[)" + package + "," + far + "," + dyn + "]}}", ""},
              {false, "", tool("echo a@b"), R"({"a@b\n":{"services":[{"type":"ddns","value":"a@b\n"}]}})", ""},
              {false, "", tool("exit 0"), "{}", ""},
              {false, "", tool("exit 3"), "{}", "Failed to execute ddns command, option=--get-varn-account"},
              {false, R"({"server_alias":{"alias":"home"},"server_kivo":{"account":""}})", "", "{}"},
              {false, R"({"server_alias":{},"server_kivo":{"account":"a@b"}})", "", "{}"},
              {false, R"({"server_alias":[],"server_kivo":"a@b"})", "", "{}"},
              {false, "[1]", "", "{}"},
              {false, "{", "", "{}"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.relay + row.ddns);
    Bench bench;
    for (const std::string& path : {relay, ddns}) unlink(path.c_str());
    if (row.record) WriteRecord(Lines("kivoID=a@b|kivoPW=p"));
    if (!row.relay.empty()) WriteFile(relay, row.relay);
    if (!row.ddns.empty()) {
      WriteFile(ddns, row.ddns);
      EXPECT_EQ(0, chmod(ddns.c_str(), 0755));
    }
    Json::Value result = "replaced";
    EXPECT_EQ(0, VARNKIVOAccountScanExisting(result));
    EXPECT_EQ(row.result, JsonText(result));
    EXPECT_EQ(row.logged, bench.device.LastLog());
  }
}

}  // namespace
