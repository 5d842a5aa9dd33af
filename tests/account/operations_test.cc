// Every operation at the account centre and the shop: a failing step and an answer that is no yes have their code and
// message, and leave the device as it was. Then what the logins, the registration and the profile update send and do.
#include <gmock/gmock.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using varnkivo::User;

namespace {

/// Signed in with a token and a report job, but for a login.
void Prepare(Bench& bench, const Operation& operation, bool signedIn = true) {
  if (!operation.isLogin && signedIn) {
    bench.SignIn(300);
    bench.StoreTokens(0);
    EXPECT_TRUE(VARNKIVOAccountRegisterCrond());
  }
  bench.device.ForgetCalls();
}

/// Runs what is to fail; `message` begins the last line, or there is none.
void ExpectFailure(Bench& bench, const Operation& operation, int code, const std::string& message) {
  const auto state = [] { return ReadFile(kRecord) + "\n" + ReadFile(kCronJob) + "\n" + ReadFile(kTokenFile); };
  const std::string before = state();
  Json::Value out = "kept";
  VARNKIVOErrSet(KIVO_ERR_ACCOUNT_LIMIT);
  EXPECT_EQ(-1, operation.run(out));
  EXPECT_EQ(code, VARNKIVOErrGet());
  const std::string line = bench.device.LastLine();
  EXPECT_TRUE(message.empty() ? line.empty() : line.rfind(operation.source + " " + message, 0) == 0) << line;
  EXPECT_EQ(before, state());
  EXPECT_TRUE(operation.isLogin || out == Json::Value("kept"));
  EXPECT_THAT(bench.Steps({"VLIBPluginAction", "ConfigManager", "VARNLogSet1"}), IsEmpty());
  EXPECT_EQ("", Notification());
}

TEST(Operation, FailingStepGivesItsCodeAndMessageAndSendsNothing) {
  const std::string request = "Failed to alloc https request, err=[0x0700 fake.c:1]", hash = "VLIBCSzHashAlloc";
  const std::string zone = "Failed to alloc pTZInfo, err=[0x0700 fake.c:1]";
  const struct {
    std::string names, call;  // no call: nobody is signed in
    int before, result, code;
    std::string message;
  } steps[] = {
      {"password oauth key", "VLIBPluginSDKInit", 0, -1, KIVO_ERR_SUCCESS, "VLIBPluginSDKInit failed"},
      {"password oauth register update report history page", "VARNKIVOServerConfigGet", 0, -1, KIVO_ERR_SERVER_CONFIG,
       "VARNKIVOServerConfigGet, code=6"},
      {"password oauth register update report history page", "VLIBGetSerialNumber", 0, -1, KIVO_ERR_SERIAL,
       "Failed to get serial number, err=[0x0700 fake.c:1]"},
      {"page", "VLIBGetOriginalSerialNumber", 0, -1, KIVO_ERR_SERIAL,
       "Failed to get serial number, err=[0x0700 fake.c:1]"},
      {"password oauth page", "VARNLuinfoCloudServiceGetMacAddress", 0, -1, KIVO_ERR_MAC, "Failed to get mac address"},
      {"password oauth key", "VARNCloudServiceGetApiKey", 0, -1, KIVO_ERR_INVALID_MACHINE, "Failed to get apikey"},
      {"page", "VARNCloudServiceGetApiKey", 0, -1, KIVO_ERR_INVALID_MACHINE,
       "Failed to get apikey, code: 28, cloudservice code: 9"},
      {"register", "VARNCloudServiceLutokenGenerateToken", 0, -1, KIVO_ERR_TOKEN,
       "VARNCloudServiceLutokenGenerateToken Failed, err=[0x0700 fake.c:1]"},
      {"oauth register report", "VARNZoneGet", 0, -1, KIVO_ERR_SUCCESS, "failed to get time zone, size need: "},
      {"oauth register report", "VARNZoneGetInfo", 0, 0, KIVO_ERR_SYSTEM, "failed to get timezone info[0x0700 fake.c"},
      {"oauth report", "VARNZoneGetInfo", 0, 1, KIVO_ERR_SYSTEM, "failed to get tmz[0x0700 fake.c:1]"},
      {"oauth", hash, 0, 0, KIVO_ERR_SYSTEM, zone},
      {"report", hash, 1, 0, KIVO_ERR_SYSTEM, zone},
      {"password", hash, 0, 0, KIVO_ERR_SYSTEM, request},
      {"register update", hash, 1, 0, KIVO_ERR_SYSTEM, request},
      {"report", hash, 2, 0, KIVO_ERR_SYSTEM, request},
      {"update history", "", 0, 0, KIVO_ERR_NO_ACCOUNT, "VARNKIVOAccountGet failed"},
      {"query", "", 0, 0, KIVO_ERR_NO_ACCOUNT, ""}};
  for (const auto& step : steps)
    for (const Operation& operation : Named(step.names)) {
      SCOPED_TRACE(operation.name + ": " + step.call + " " + step.message);
      Bench bench;
      Prepare(bench, operation, !step.call.empty());
      if (!step.call.empty()) bench.device.FailAfter(step.call, step.before, step.result);
      if (step.code == KIVO_ERR_INVALID_MACHINE)
        bench.device.FailNext("VARNCloudServiceGetErrorCode", operation.isLogin ? 1 : 2, 9);
      ExpectFailure(bench, operation, step.code, step.message);
      EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
    }
}

TEST(Operation, NullsAreRefusedBeforeAnythingElse) {
  const Bench bench;
  Json::Value out, none;
  const char* const null = nullptr;
  const std::vector<std::function<int()>> calls = {
      [&] { return VARNKIVOAccountLogin(null, "a", out, false); },
      [&] { return VARNKIVOAccountLogin("a", null, out, false); },
      [&] { return VARNKIVOAccountLoginByKey(null, "a", out); },
      [&] { return VARNKIVOAccountLoginByKey("a", null, out); },
      [&] { return VARNKIVOAccountOauthLogin(out, null); },
      [&] { return VARNKIVOAccountRegister(null, "p", "n", false, false, false, "c"); },
      [&] { return VARNKIVOAccountRegister("e", null, "n", false, false, false, "c"); },
      [&] { return VARNKIVOAccountRegister("e", "p", null, false, false, false, "c"); },
      [&] { return VARNKIVOAccountPurchaseList(null, null, null, none, none, none, none, out); },
      [&] { return VARNPaymentHTTPSAuth(null, "p", "l", nullptr) & VARNPaymentHTTPSAuth("a", "p", "l", nullptr); },
      [] {
        return VARNKIVOServerConfigGet(nullptr) & VARNPaymentConfigGet(nullptr) & VARNPaymentKivoAccountGet(nullptr);
      },
      [] { return VARNKIVOAccountGet(nullptr) & VARNKIVOAccountSet(nullptr); }};
  for (const auto& call : calls) {
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    EXPECT_EQ(-1, call());
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet()) << &call - calls.data();
  }
  EXPECT_EQ(0u, bench.cloud->Connections());
}

TEST(Operation, AnswerThatIsNoYesHasItsCodeAndMessageAndChangesNothing) {
  const std::string send = "ailed to send https request. err=[0x", json = "Failed to parse json: ";
  const std::string secrets = R"({"code":"badsys","passwd":")" + std::string(kPassword) + R"(","api_key":")" + kApiKey;
  const std::string deep = std::string(1500, '[') + std::string(1500, ']');
  std::string wide = "[0";
  for (int i = 0; i < 300000; ++i) wide += ",0";
  const struct {
    std::string names;
    int status;
    std::string body;
    int code;
    std::string message;  // "R": the operation's refusal, with the body or what follows
  } answers[] = {
      {"password oauth query report history update", 503, "good", KIVO_ERR_SEND, "F" + send},
      {"register", 503, "good", KIVO_ERR_SEND, "f" + send},
      {"password oauth query report history", 200, "<html>%n%s", KIVO_ERR_BAD_JSON, json + "<html>%n%s"},
      {"query", 200, deep, KIVO_ERR_BAD_JSON, json + "["},
      {"query", 200, wide + "]", KIVO_ERR_BAD_JSON, json + "[0,0"},
      {"password oauth", 200, "[]", KIVO_ERR_RESPONSE, "bad response, no code"},
      {"query", 200, "[]", KIVO_ERR_RESPONSE, "R[]"},
      {"report history", 200, "{}", KIVO_ERR_RESPONSE, ""},
      {"password oauth report history", 200, R"({"code":0,"id":"1"})", KIVO_ERR_UNKNOWN, "R"},
      {"password oauth report history", 400, R"({"code":"badsys"})", KIVO_ERR_SYSTEM, "R"},
      {"password oauth", 200, R"({"code":"apikey_expired"})", KIVO_ERR_APIKEY_EXPIRED, "R"},
      {"password oauth", 200, R"({"code":"good","id":{},"auth_key":"k"})", KIVO_ERR_RESPONSE, "bad response, no id or"},
      {"password oauth", 200, R"({"code":"good","id":"1","auth_key":["k"]})", KIVO_ERR_RESPONSE, "bad response, no"},
      {"history", 200, R"({"code":"good\u0000x"})", KIVO_ERR_UNKNOWN, "R{"},
      {"history", 200, R"({"code":"good","entries":["a"]})", KIVO_ERR_RESPONSE, ""},
      {"history", 200, R"({"code":"good","entries":[{"price":"9.99"}]})", KIVO_ERR_RESPONSE, ""},
      {"register update", 400, "account_inused", KIVO_ERR_ACCOUNT_IN_USE, "R"},
      {"register update", 200, R"({"code":"good"})", KIVO_ERR_UNKNOWN, "R"},
      {"password oauth report history", 200, secrets + "\"}", KIVO_ERR_SYSTEM,
       R"(R{"code":"badsys","passwd":"...","api_key":"ApiKey-012..."})"},
      {"query", 200, R"({"auth_key":")" + std::string(kAuthKey) + R"(","passwd":"secret"})", KIVO_ERR_RESPONSE,
       R"(R{\x0a\x09"auth_key" : "AuthKey+01...",\x0a\x09"passwd" : "..."\x0a}\x0a)"}};
  for (const auto& answer : answers)
    for (const Operation& operation : Named(answer.names)) {
      SCOPED_TRACE(operation.name + ": " + answer.body.substr(0, 200));
      Bench bench;
      Prepare(bench, operation);
      bench.cloud.AnswerAll(answer.status, answer.body);
      std::string message = answer.message;
      if (message[0] == 'R') message.replace(0, 1, operation.refused + (message == "R" ? answer.body : ""));
      ExpectFailure(bench, operation, answer.code, message);
      EXPECT_EQ(1u, bench.cloud.Requests().size());
      EXPECT_EQ(answer.code == KIVO_ERR_APIKEY_EXPIRED ? 1u : 0u,
                bench.device.Calls("VARNCloudServiceActionHandler(2)").size());
    }
}

TEST(Operation, SendsExactlyItsParametersWithinItsTime) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  const std::string serial = "&serial_no=2040VKN000001", zone = "&timezone=Europe%2FBerlin";
  const std::string password = "&passwd=correct%20horse%20%26%20%2Bbattery", seconds = "CURLOPT_TIMEOUT(120)";
  const std::string key = "&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D";
  const std::string machine = "&api_key=ApiKey-0123456789-abcdefghij&mac=02%3A00%3A5e%3A20%3A40%3A01";
  const struct {
    std::string name, sent;
  } rows[] = {{"password", "&type=acnt_pw_apikey&email=ann%40example.com" + password + serial + machine},
              {"oauth", "&language=enu&access_token=AccessToken-0123456789-abcdefghij" + zone + machine + serial},
              {"key", key + serial},
              {"query", key + serial},
              {"register", "&email=ann%40example.com" + password + "&full_name=Ann" + serial +
                               "&notify_lang=enu&token=" + DeviceFields().substr(29) + zone +
                               "&critical_release=true&enews_local_promotion=false&enews=true"},
              {"update", key + serial + "&full_name=Ann&critical_release=true&enews_local_promotion=false"},
              {"report", key + zone + "&serial_no=2040VKN000001&lu_info="},
              {"history", "&action=get_history" + key + serial + "&language=enu"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Operation operation = Named(row.name).at(0);
    Bench bench;
    Prepare(bench, operation);
    Json::Value out = "anything";
    operation.run(out);
    const std::string host = row.name == "history" ? "payment.kivo.example " : "account.kivo.example ";
    EXPECT_EQ("POST /" + operation.path + " " + host + DeviceFields() + row.sent, bench.Sent().at(0));
    EXPECT_EQ(row.name == "key" ? "CURLOPT_TIMEOUT(15)" : seconds, bench.device.Calls("CURLOPT_TIMEOUT(").at(0));
    EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  }
}

TEST(Login, DoesItsStepsInOrder) {
  const std::string id = "set kivoIDSerial", key = "set lu_auth_key", query = "VLIBCFileLockByFile";
  const std::string send = "curl_easy_perform", time = "set last_query_time";
  const std::string init = "VLIBPluginSDKInit", hook = "VLIBPluginAction";
  const std::string job = "ConfigManager::Save", event = "VARNLogSet1", apiKey = "VARNCloudServiceGetApiKey";
  const std::vector<std::string> byServer = {init, apiKey, send, id, key, job, event, query, send, time, hook};
  const std::vector<std::string> byKey = {apiKey, init, id, key, query, send, time, hook, job, event};
  for (const Operation& login : Named("password oauth key")) {
    SCOPED_TRACE(login.name);
    const bool withKey = login.name == "key";
    Bench bench;
    Json::Value response;
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    ASSERT_EQ(0, login.run(response));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_THAT(JsonText(response), EndsWith(R"("auth_key":"AuthKey+0123456789/abcdef==",)" +
                                             std::string(withKey ? "" : R"("code":"good",)") +
                                             R"("email":"ann@example.com")" + (withKey ? "}" : R"(,"id":"1001"})")));
    EXPECT_EQ(withKey ? byKey : byServer, bench.Steps({init, hook, apiKey, id, key, time, job, event, query, send}));
    EXPECT_THAT(bench.device.Calls("VLIBPlugin"), ElementsAre(init + "(kivo,kivo/login,*,0)", hook + "(5,*)"));
    EXPECT_THAT(bench.device.Calls(event), ElementsAre(event + "(2,1,329252865,ann@example.com,,,)"));
    EXPECT_THAT(bench.device.Logs(), ElementsAre("Logged in Kivo Center as ann@example.com"));
    EXPECT_EQ("1001 ann@example.com " + std::string(kAuthKey),
              User().GetUserId() + " " + User().GetEmail() + " " + User().GetAuthKey());
  }
}

TEST(Login, UnknownApiKeyIsReplacedAndAQueryThatFailsEndsTheKeyLoginOnly) {
  Json::Value response;
  for (const Operation& login : Named("password oauth")) {
    Bench bench;
    bench.Answer(login.path, R"({"code":"apikey_not_found"})", 400);
    bench.Answer(kQuery, "", 503);
    EXPECT_EQ(0, login.run(response));
    EXPECT_EQ(KIVO_ERR_SEND, VARNKIVOErrGet());
    EXPECT_TRUE(IsThere(kRecord));
    const auto requests = bench.cloud.Requests(login.path);
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ(requests[1].Param("api_key") + "\n", ReadFile(kApiKeyFile));
  }
  Bench bench;
  bench.SignIn(301);  // an earlier account's record goes too
  bench.Answer(kQuery, "", 503);
  EXPECT_EQ(-1, VARNKIVOAccountLoginByKey(kUserId, kAuthKey, response));
  EXPECT_EQ(KIVO_ERR_AUTH, VARNKIVOErrGet());
  EXPECT_FALSE(IsThere(kRecord));
  EXPECT_THAT(bench.Steps({"VLIBPluginAction", "ConfigManager", "VARNLogSet1"}), IsEmpty());
}

TEST(Login, ReportsThatAreSwitchedOffHaveNoJobAndANumberWillDoForAnId) {
  Json::Value response;
  Bench bench;
  WriteFile(kDeviceConf, "kivo_disable_report=\"yes\"\nlanguage=\"" + std::string(40, 'x') + "\"\n");
  bench.cloud.AnswerAll(200, R"({"code":"good","id":1001})");
  EXPECT_EQ(0, VARNKIVOAccountOauthLogin(response, kAccessToken));
  EXPECT_FALSE(IsThere(kCronJob));
  EXPECT_EQ(std::string(31, 'x'), bench.cloud.Requests().at(0).Param("language"));
  EXPECT_EQ("1001 ", User().GetUserId() + " " + User().GetAuthKey());
}

TEST(Profile, ANewPasswordIsAnnouncedAndNothingOfThatCanFailIt) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""}, {"notification", "Send notification failed"}, {"query", "VARNKIVOAccountQueryInfo failed, code=4"}};
  for (const auto& [fails, logged] : rows) {
    Bench bench;
    bench.SignIn(fails == "query" ? 300 : 299);  // asked for, or from the record
    bench.Answer("device/api/user/update", "good");
    if (fails == "query") bench.Answer(kQuery, "", 503);
    if (fails == "notification") bench.device.FailNext("VARNSysNotifySendNotifiction");
    EXPECT_EQ(0, VARNKIVOAccountSetInfo(nullptr, nullptr, kPassword, "new password", nullptr, nullptr, nullptr, -1, -1,
                                        -1, nullptr));
    EXPECT_THAT(bench.Sent().at(0), EndsWith("battery&passwd_new=new%20password&passwd_confirmation=new%20password"));
    EXPECT_EQ(logged, bench.device.LastLog());
    EXPECT_EQ(fails.empty() ? R"(KivoPasswordChanged {"%KIVO_ACCOUNT%":"ann@example.com"})" : "", Notification());
  }
}

}  // namespace
