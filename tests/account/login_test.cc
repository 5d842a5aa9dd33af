// The three logins: what is sent, stored and done in which order, and what a failure at each step leaves behind.
#include <gmock/gmock.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using namespace testsupport;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;
using varnkivo::User;

namespace {

struct Login {
  std::string name, path, refused;
  int (*run)(Json::Value& response);
};
const Login kPasswordLogin = {"password", "device/api/password_login", "Failed to login ann@example.com, resp=",
                              [](Json::Value& out) { return VARNKIVOAccountLogin(kEmail, kPassword, out, false); }};
const Login kOauthLogin = {"oauth", "good/user/launch", "Failed to login, resp=", [](Json::Value& out) {
                             return VARNKIVOAccountOauthLogin(out, kAccessToken);
                           }};
const Login kKeyLogin = {"key", kQuery, "",
                         [](Json::Value& out) { return VARNKIVOAccountLoginByKey(kUserId, kAuthKey, out); }};
const std::vector<Login> kByServer = {kPasswordLogin, kOauthLogin}, kAll = {kPasswordLogin, kOauthLogin, kKeyLogin};

/// A login that is to fail before it is through: `message` begins the last line, and nothing is stored or announced.
void ExpectFailure(const Bench& bench, const Login& login, int code, const std::string& message) {
  Json::Value response;
  VARNKIVOErrSet(KIVO_ERR_ACCOUNT_LIMIT);
  EXPECT_EQ(-1, login.run(response));
  EXPECT_EQ(code, VARNKIVOErrGet());
  EXPECT_THAT(bench.device.LastLine(), StartsWith("kivo_account_login " + message));
  EXPECT_THAT(bench.Steps({"VLIBPluginAction", "ConfigManager", "VARNLogSet1"}), IsEmpty());
  EXPECT_FALSE(IsThere(kRecord));
}

TEST(Login, SendsExactlyItsParametersAndDoesItsStepsInOrder) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  const std::string id = "set kivoIDSerial", key = "set lu_auth_key", query = "VLIBCFileLockByFile";
  const std::string send = "curl_easy_perform", time = "set last_query_time";
  const std::string init = "VLIBPluginSDKInit", hook = "VLIBPluginAction";
  const std::string job = "ConfigManager::Save", event = "VARNLogSet1", apiKey = "VARNCloudServiceGetApiKey";
  const std::vector<std::string> byServer = {init, apiKey, send, id, key, job, event, query, send, time, hook};
  const struct {
    const Login& login;
    std::string body, response;
    std::vector<std::string> steps;
  } rows[] = {{kPasswordLogin,
               "&type=acnt_pw_apikey&email=ann%40example.com&passwd=correct%20horse%20%26%20%2Bbattery"
               "&serial_no=2040VKN000001&api_key=ApiKey-0123456789-abcdefghij&mac=02%3A00%3A5e%3A20%3A40%3A01",
               R"("code":"good","email":"ann@example.com","id":"1001"})", byServer},
              {kOauthLogin,
               "&language=enu&access_token=AccessToken-0123456789-abcdefghij&timezone=Europe%2FBerlin"
               "&api_key=ApiKey-0123456789-abcdefghij&mac=02%3A00%3A5e%3A20%3A40%3A01&serial_no=2040VKN000001",
               R"("code":"good","email":"ann@example.com","id":"1001"})", byServer},
              {kKeyLogin,
               "&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D&serial_no=2040VKN000001",
               R"("email":"ann@example.com"})",
               {apiKey, init, id, key, query, send, time, hook, job, event}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.login.name);
    Bench bench;
    Json::Value response;
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    ASSERT_EQ(0, row.login.run(response));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_THAT(JsonText(response), EndsWith(R"("auth_key":"AuthKey+0123456789/abcdef==",)" + row.response));
    EXPECT_THAT(bench.cloud.Requests(row.login.path).at(0).body, EndsWith(row.body));
    EXPECT_EQ(row.login.name == "key" ? "CURLOPT_TIMEOUT(15)" : "CURLOPT_TIMEOUT(120)",
              bench.device.Calls("CURLOPT_TIMEOUT(")[0]);
    EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
    EXPECT_EQ(row.steps, bench.Steps({init, hook, apiKey, id, key, time, job, event, query, send}));
    EXPECT_THAT(bench.device.Calls("VLIBPlugin"), ElementsAre(init + "(kivo,kivo/login,*,0)", hook + "(5,*)"));
    EXPECT_THAT(bench.device.Calls(event), ElementsAre(event + "(2,1,329252865,ann@example.com,,,)"));
    EXPECT_THAT(bench.device.Logs(), ElementsAre("Logged in Kivo Center as ann@example.com"));
    EXPECT_EQ("1001 ann@example.com " + std::string(kAuthKey),
              User().GetUserId() + " " + User().GetEmail() + " " + User().GetAuthKey());
  }
}

TEST(Login, FailingStepGivesItsCodeAndMessageAndSendsNothing) {
  Json::Value ignored;
  for (int i = 0; i < 5; ++i) {
    const char *one = i % 2 ? "a" : nullptr, *other = i % 2 ? nullptr : "a";
    const Bench bench;
    EXPECT_EQ(-1, i < 2   ? VARNKIVOAccountLogin(one, other, ignored, false)
                  : i < 4 ? VARNKIVOAccountLoginByKey(one, other, ignored)
                          : VARNKIVOAccountOauthLogin(ignored, nullptr));
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
    EXPECT_THAT(bench.device.Logs(), ElementsAre("Bad Parameters"));
    EXPECT_THAT(bench.device.Calls(), IsEmpty());
  }
  const struct {
    std::string logins, call;
    int result, code;
    std::string message;
  } steps[] = {
      {"password oauth key", "VLIBPluginSDKInit", -1, KIVO_ERR_SUCCESS, "VLIBPluginSDKInit failed"},
      {"password oauth", "VARNKIVOServerConfigGet", -1, KIVO_ERR_SERVER_CONFIG, "VARNKIVOServerConfigGet, code=6"},
      {"password oauth", "VLIBGetSerialNumber", -1, KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x0700 fake.c"},
      {"password oauth", "VARNLuinfoCloudServiceGetMacAddress", -1, KIVO_ERR_MAC, "Failed to get mac address"},
      {"password oauth key", "VARNCloudServiceGetApiKey", -1, KIVO_ERR_INVALID_MACHINE, "Failed to get apikey"},
      {"password", "VLIBCSzHashAlloc", 0, KIVO_ERR_SYSTEM, "Failed to alloc https request, err=[0x0700 fake.c:1]"},
      {"oauth", "VARNZoneGet", -1, KIVO_ERR_SUCCESS, "failed to get time zone, size need: "},
      {"oauth", "VLIBCSzHashAlloc", 0, KIVO_ERR_SYSTEM, "Failed to alloc pTZInfo, err=[0x0700 fake.c:1]"},
      {"oauth", "VARNZoneGetInfo", 0, KIVO_ERR_SYSTEM, "failed to get timezone info[0x0700 fake.c:1]"},
      {"oauth", "VARNZoneGetInfo", 1, KIVO_ERR_SYSTEM, "failed to get tmz[0x0700 fake.c:1]"}};
  for (const auto& step : steps) {
    for (const Login& login : kAll) {
      if (step.logins.find(login.name) == std::string::npos) continue;
      SCOPED_TRACE(login.name + ": " + step.message);
      Bench bench;
      bench.device.FailNext(step.call, 1, step.result);
      if (step.code == KIVO_ERR_INVALID_MACHINE) bench.device.FailNext("VARNCloudServiceGetErrorCode", 1, 9);
      ExpectFailure(bench, login, step.code, step.message);
      EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
    }
  }
}

TEST(Login, AnswerThatIsNoYesStoresNothing) {
  const std::string no = "bad response, no code", json = "Failed to parse json: <html>";
  const struct {
    std::string body;
    int code;
    std::string message;  // "R": the login's own refusal with the body
  } answers[] = {{"", KIVO_ERR_SEND, "Failed to send https request. err=[0x"},
                 {"<html>", KIVO_ERR_BAD_JSON, json},
                 {"[]", KIVO_ERR_RESPONSE, no},
                 {R"({"code":0,"id":"1"})", KIVO_ERR_UNKNOWN, "R"},
                 {R"({"code":"badauth"})", KIVO_ERR_AUTH, "R"},
                 {R"({"code":"apikey_expired"})", KIVO_ERR_APIKEY_EXPIRED, "R"},
                 {R"({"code":"good","id":{},"auth_key":"k"})", KIVO_ERR_RESPONSE, ""},
                 {R"({"code":"good","id":"1","auth_key":["k"]})", KIVO_ERR_RESPONSE, ""}};
  for (const Login& login : kByServer) {
    for (const auto& answer : answers) {
      SCOPED_TRACE(login.name + ": " + answer.body);
      Bench bench;
      bench.cloud.AnswerAll(answer.body.empty() ? 503 : 200, answer.body);
      ExpectFailure(bench, login, answer.code, answer.message == "R" ? login.refused + answer.body : answer.message);
      EXPECT_EQ(1u, bench.cloud.Requests().size());
      EXPECT_EQ(answer.code == KIVO_ERR_APIKEY_EXPIRED ? 1u : 0u,
                bench.device.Calls("VARNCloudServiceActionHandler(2)").size());
    }
    Bench bench;
    bench.cloud.AnswerAll(
        200, R"({"code":"badsys","passwd":")" + std::string(kPassword) + R"(","api_key":")" + kApiKey + "\"}");
    ExpectFailure(bench, login, KIVO_ERR_SYSTEM,
                  login.refused + R"({"code":"badsys","passwd":"...","api_key":"ApiKey-012..."})");
  }
}

TEST(Login, FailureAfterTheYesKeepsWhatWasDoneBefore) {
  const struct {
    std::string call;
    int before, result, code;
    std::string message;
  } rows[] = {{"VLIBCFileSetKeyValue", 0, -1, KIVO_ERR_CONFIG_WRITE, "Failed to set user: "},
              {"VLIBCFileSetKeyValue", 1, -1, KIVO_ERR_CONFIG_WRITE, "Failed to set user: "},
              {"ConfigManager::Save", 0, 0, KIVO_ERR_SUCCESS, "Failed to add crontab for kivo"},
              {"VLIBPluginAction", 0, -1, KIVO_ERR_SUCCESS, "VLIBPluginAction failed, action=5"}};
  for (const Login& login : kAll) {
    for (const auto& row : rows) {
      SCOPED_TRACE(login.name + ": " + row.message + std::to_string(row.before));
      Bench bench;
      bench.device.FailAfter(row.call, row.before, row.result);
      Json::Value response;
      EXPECT_EQ(row.call == "ConfigManager::Save" ? 0 : -1, login.run(response));
      EXPECT_EQ(row.code, VARNKIVOErrGet());
      EXPECT_THAT(bench.device.Logs(), testing::Contains(StartsWith(row.message)));
      const bool isStored = row.code == KIVO_ERR_SUCCESS;
      EXPECT_EQ(row.before == 1 || isStored, User().GetUserId() == kUserId);
      EXPECT_EQ(isStored, User().GetAuthKey() == kAuthKey);
      const bool isAnnounced = isStored && !(row.call == "VLIBPluginAction" && login.name == "key");
      EXPECT_EQ(isAnnounced ? 2u : 0u, bench.Steps({"ConfigManager", "VARNLogSet1"}).size());
    }
  }
}

TEST(Login, UnknownApiKeyIsReplacedAndAQueryThatFailsEndsTheKeyLoginOnly) {
  Json::Value response;
  for (const Login& login : kByServer) {
    Bench bench;
    auto unknown = kivosim::Fault::Answer(400, R"({"code":"apikey_not_found"})");
    unknown.skipHandler = true;
    bench.cloud->QueueFault(login.path, unknown);
    bench.cloud->QueueFault(kQuery, kivosim::Fault::Answer(503, ""));
    EXPECT_EQ(0, login.run(response));
    EXPECT_EQ(KIVO_ERR_SEND, VARNKIVOErrGet());
    EXPECT_TRUE(IsThere(kRecord));
    const auto requests = bench.cloud.Requests(login.path);
    ASSERT_EQ(2u, requests.size());
    EXPECT_EQ(requests[1].Param("api_key") + "\n", ReadFile(kApiKeyFile));
  }
  Bench bench;
  bench.SignIn(301);  // an earlier account's record goes too
  bench.cloud->QueueFault(kQuery, kivosim::Fault::Answer(503, ""));
  EXPECT_EQ(-1, kKeyLogin.run(response));
  EXPECT_EQ(KIVO_ERR_AUTH, VARNKIVOErrGet());
  EXPECT_FALSE(IsThere(kRecord));
  EXPECT_THAT(bench.Steps({"VLIBPluginAction", "ConfigManager", "VARNLogSet1"}), IsEmpty());
}

TEST(Login, RecordAndConfigurationDecideToo) {
  Json::Value response;
  for (const std::string value : {"yes", "YES"}) {
    Bench bench;
    WriteFile(kDeviceConf, "kivo_disable_report=\"" + value + "\"\nlanguage=\"" + std::string(40, 'x') + "\"\n");
    bench.cloud.AnswerAll(200, R"({"code":"good","id":1001})");  // a number will do, and no key is stored as such
    EXPECT_EQ(0, kOauthLogin.run(response));
    EXPECT_EQ(value != "yes", IsThere(kCronJob)) << value;
    EXPECT_EQ(std::string(31, 'x'), bench.cloud.Requests().at(0).Param("language"));
    EXPECT_EQ("1001 ", User().GetUserId() + " " + User().GetAuthKey());
  }
  Bench bench;
  bench.SignIn(299);  // the record answers for a query so young, whatever the key
  EXPECT_EQ(0, VARNKIVOAccountLoginByKey(kUserId, "wrong", response));
  EXPECT_EQ("wrong", response["auth_key"].asString());
  EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
}

}  // namespace
