// Every operation at the account centre and the shop: a failing step and an answer that is no yes have their code and
// message, and leave the device as it was.
#include <gmock/gmock.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using testing::IsEmpty;
using testing::StartsWith;

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

/// Runs what is to fail; `message` begins the last line, or there is none, or "?" is any.
void ExpectFailure(Bench& bench, const Operation& operation, int code, const std::string& message) {
  const auto state = [] { return ReadFile(kRecord) + "\n" + ReadFile(kCronJob) + "\n" + ReadFile(kTokenFile); };
  const std::string before = state();
  Json::Value out = "kept";
  VARNKIVOErrSet(KIVO_ERR_ACCOUNT_LIMIT);
  EXPECT_EQ(-1, operation.run(out));
  EXPECT_EQ(code, VARNKIVOErrGet());
  if (message.empty()) {
    EXPECT_EQ("", bench.device.LastLine());
  } else if (message != "?") {
    EXPECT_THAT(bench.device.LastLine(), StartsWith(operation.source + " " + message));
  }
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
      {"oauth", hash, 0, 0, KIVO_ERR_SYSTEM, zone},
      {"report", hash, 1, 0, KIVO_ERR_SYSTEM, zone},
      {"oauth register report", "VARNZoneGetInfo", 0, 0, KIVO_ERR_SYSTEM, "failed to get timezone info[0x0700 fake.c"},
      {"oauth report", "VARNZoneGetInfo", 0, 1, KIVO_ERR_SYSTEM, "failed to get tmz[0x0700 fake.c:1]"},
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
      [] { return VARNPaymentKivoAccountGet(nullptr); },
      [] { return VARNKIVOServerConfigGet(nullptr) & VARNPaymentConfigGet(nullptr); },
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
      {"password oauth query report history", 200, R"({"code":"good")", KIVO_ERR_BAD_JSON, json + R"({"code":"good")"},
      {"query", 200, deep, KIVO_ERR_BAD_JSON, json + "["},
      {"query", 200, wide + "]", KIVO_ERR_BAD_JSON, json + "[0,0"},
      {"password oauth", 200, "[]", KIVO_ERR_RESPONSE, "bad response, no code"},
      {"query", 200, "[]", KIVO_ERR_RESPONSE, "R[]"},
      {"query", 200, "null", KIVO_ERR_RESPONSE, "Rnull"},
      {"report history", 200, "{}", KIVO_ERR_RESPONSE, ""},
      {"report history", 200, R"(["code"])", KIVO_ERR_RESPONSE, ""},
      {"password oauth report history", 200, R"({"code":0,"id":"1"})", KIVO_ERR_UNKNOWN, "R"},
      {"password oauth report history", 400, R"({"code":"badsys"})", KIVO_ERR_SYSTEM, "R"},
      {"password oauth history", 200, R"({"code":"badauth"})", KIVO_ERR_AUTH, "R"},
      {"password oauth", 200, R"({"code":"apikey_expired"})", KIVO_ERR_APIKEY_EXPIRED, "R"},
      {"password oauth", 200, R"({"code":"good","id":{},"auth_key":"k"})", KIVO_ERR_RESPONSE, "bad response, no id or"},
      {"password oauth", 200, R"({"code":"good","id":"1","auth_key":["k"]})", KIVO_ERR_RESPONSE, "bad response, no"},
      {"history", 200, R"({"code":"good\u0000x"})", KIVO_ERR_UNKNOWN, "R{"},
      {"history", 200, R"({"code":"good","entries":["a"]})", KIVO_ERR_RESPONSE, ""},
      {"history", 200, R"({"code":"good","entries":[{"price":"9.99"}]})", KIVO_ERR_RESPONSE, ""},
      {"register update", 400, "account_inused", KIVO_ERR_ACCOUNT_IN_USE, "R"},
      {"register update", 200, "serial_exceed_max_account_register", KIVO_ERR_ACCOUNT_LIMIT, "R"},
      {"register update", 200, R"({"code":"good"})", KIVO_ERR_UNKNOWN, "R"},
      {"register update", 200, "goo", KIVO_ERR_UNKNOWN, "R"},
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

}  // namespace
