// The three logins: what is sent, stored and done in which order, and what a failure at each step leaves behind.
#include <gmock/gmock.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "account_bench.h"

using namespace accounttest;
using namespace testsupport;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using varnkivo::User;

namespace {

struct Login {
  std::string name, path, refused;
  int (*run)(Json::Value& response);
};
const Login kPasswordLogin = {"password", "device/api/password_login",
                              "Failed to login ann@example.com, resp=", [](Json::Value& response) {
                                return VARNKIVOAccountLogin(kEmail, kPassword, response, false);
                              }};
const Login kOauthLogin = {"oauth", "good/user/launch", "Failed to login, resp=", [](Json::Value& response) {
                             return VARNKIVOAccountOauthLogin(response, kAccessToken);
                           }};
const Login kKeyLogin = {"key", kQuery, "",
                         [](Json::Value& response) { return VARNKIVOAccountLoginByKey(kUserId, kAuthKey, response); }};
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
  const std::string api = std::string("api_key=") + kApiKey, mac = "mac=02:00:5e:20:40:01",
                    serial = "serial_no=2040VKN000001";
  const std::string userId = "set kivoIDSerial", authKey = "set lu_auth_key", query = "VLIBCFileLockByFile";
  const std::string send = "curl_easy_perform", time = "set last_query_time", hook = "VLIBPluginAction",
                    init = "VLIBPluginSDKInit";
  const std::string job = "ConfigManager::Save", event = "VARNLogSet1", apiKey = "VARNCloudServiceGetApiKey";
  const std::vector<std::string> byServer = {init, apiKey, send, userId, authKey, job, event, query, send, time, hook};
  const std::string member = R"("auth_key":"AuthKey+0123456789/abcdef==",)", email = R"("email":"ann@example.com")";
  const struct {
    const Login& login;
    std::vector<std::string> parameters, steps, timeOuts;
    std::string response;
  } rows[] = {
      {kPasswordLogin,
       {"type=acnt_pw_apikey", "email=ann@example.com", std::string("passwd=") + kPassword, serial, api, mac},
       byServer,
       {"CURLOPT_TIMEOUT(120)", "CURLOPT_TIMEOUT(15)"},
       "{" + member + R"("code":"good",)" + email + R"(,"id":"1001"})"},
      {kOauthLogin,
       {"language=enu", std::string("access_token=") + kAccessToken, "timezone=Europe/Berlin", api, mac, serial},
       byServer,
       {"CURLOPT_TIMEOUT(120)", "CURLOPT_TIMEOUT(15)"},
       "{" + member + R"("code":"good",)" + email + R"(,"id":"1001"})"},
      {kKeyLogin,
       {"id=1001", std::string("auth_key=") + kAuthKey, serial},
       {apiKey, init, userId, authKey, query, send, time, hook, job, event},
       {"CURLOPT_TIMEOUT(15)"},
       R"({"activated":true,)" + member + email + "}"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.login.name);
    Bench bench;
    Json::Value response;
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    ASSERT_EQ(0, row.login.run(response));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_EQ(row.response, JsonText(response));
    auto sent = Texts(bench.cloud.Requests(row.login.path).at(0).form);
    sent.erase(sent.begin(), sent.begin() + 2);  // "lu_sn", "lu_token"
    EXPECT_EQ(row.parameters, sent);
    EXPECT_EQ(row.timeOuts, bench.device.Calls("CURLOPT_TIMEOUT("));
    EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
    EXPECT_EQ(row.steps, bench.Steps({init, hook, apiKey, userId, authKey, time, job, event, query, send}));
    EXPECT_THAT(bench.device.Calls("VLIBPlugin"), ElementsAre(init + "(kivo,kivo/login,*,0)", hook + "(5,*)"));
    EXPECT_THAT(bench.device.Calls(event),
                ElementsAre(event + "(2,1," + std::to_string(0x13A00001) + ",ann@example.com,,,)"));
    EXPECT_THAT(bench.device.Logs(), ElementsAre("Logged in Kivo Center as ann@example.com"));
    EXPECT_EQ("1001 ann@example.com " + std::string(kAuthKey),
              User().GetUserId() + " " + User().GetEmail() + " " + User().GetAuthKey());
  }
}

TEST(Login, VerifyOnlyChangesNothing) {
  for (const bool right : {true, false}) {
    Bench bench;
    bench.SignIn(86400);
    const std::string record = ReadFile(kRecord);
    Json::Value response;
    EXPECT_EQ(right ? 0 : -1, VARNKIVOAccountLogin(kEmail, right ? kPassword : "wrong", response, true));
    EXPECT_EQ(right ? KIVO_ERR_SUCCESS : KIVO_ERR_AUTH, VARNKIVOErrGet());
    EXPECT_EQ(right ? "good" : "badauth", response["code"].asString());
    EXPECT_EQ(1u, bench.cloud.Requests().size());
    EXPECT_THAT(bench.Steps({"set ", "VLIBPluginAction", "ConfigManager", "VARNLogSet1"}), IsEmpty());
    EXPECT_EQ(record, ReadFile(kRecord));
    EXPECT_EQ(right, bench.device.Logs().empty());
  }
}

TEST(Login, FailingStepGivesItsCodeAndMessageAndSendsNothing) {
  Json::Value ignored;
  for (int i = 0; i < 5; ++i) {
    const Bench bench;
    EXPECT_EQ(-1, i == 0   ? VARNKIVOAccountLogin(nullptr, "p", ignored, false)
                  : i == 1 ? VARNKIVOAccountLogin("e", nullptr, ignored, false)
                  : i == 2 ? VARNKIVOAccountLoginByKey(nullptr, "k", ignored)
                  : i == 3 ? VARNKIVOAccountLoginByKey("i", nullptr, ignored)
                           : VARNKIVOAccountOauthLogin(ignored, nullptr));
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
    EXPECT_THAT(bench.device.Logs(), ElementsAre("Bad Parameters"));
    EXPECT_THAT(bench.device.Calls(), IsEmpty());
  }
  const struct {
    std::string logins, call;
    int before, result, code;
    std::string message;
  } steps[] = {
      {"password oauth key", "VLIBPluginSDKInit", 0, -1, KIVO_ERR_SUCCESS, "VLIBPluginSDKInit failed"},
      {"password oauth", "VARNKIVOServerConfigGet", 0, -1, KIVO_ERR_SERVER_CONFIG, "VARNKIVOServerConfigGet, code=6"},
      {"password oauth", "VLIBGetSerialNumber", 0, -1, KIVO_ERR_SERIAL,
       "Failed to get serial number, err=[0x0700 fake.c:1]"},
      {"password oauth", "VARNLuinfoCloudServiceGetMacAddress", 0, -1, KIVO_ERR_MAC, "Failed to get mac address"},
      {"password oauth key", "VARNCloudServiceGetApiKey", 0, -1, KIVO_ERR_INVALID_MACHINE, "Failed to get apikey"},
      {"password", "VLIBCSzHashAlloc", 0, 0, KIVO_ERR_SYSTEM, "Failed to alloc https request, err=[0x0700 fake.c:1]"},
      {"oauth", "VARNZoneGet", 0, -1, KIVO_ERR_SUCCESS, "failed to get time zone, size need: "},
      {"oauth", "VLIBCSzHashAlloc", 0, 0, KIVO_ERR_SYSTEM, "Failed to alloc pTZInfo, err=[0x0700 fake.c:1]"},
      {"oauth", "VARNZoneGetInfo", 0, 0, KIVO_ERR_SYSTEM, "failed to get timezone info[0x0700 fake.c:1]"},
      {"oauth", "VARNZoneGetInfo", 0, 1, KIVO_ERR_SYSTEM, "failed to get tmz[0x0700 fake.c:1]"},
  };
  for (const auto& step : steps) {
    for (const Login& login : kAll) {
      if (step.logins.find(login.name) == std::string::npos) continue;
      SCOPED_TRACE(login.name + ": " + step.message);
      Bench bench;
      bench.device.FailAfter(step.call, step.before, step.result);
      if (step.code == KIVO_ERR_INVALID_MACHINE) bench.device.FailNext("VARNCloudServiceGetErrorCode", 1, 9);
      ExpectFailure(bench, login, step.code, step.message);
      EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
    }
  }
}

TEST(Login, AnswerThatIsNoYesStoresNothing) {
  const std::string secrets = std::string(R"(,"passwd":")") + kPassword + R"(","access_token":")" + kAccessToken +
                              R"(","api_key":")" + kApiKey + R"(","auth_key":")" + kAuthKey + "\"}";
  const std::string cut = R"(,"passwd":"...","access_token":"AccessToke...","api_key":"ApiKey-012...",)"
                          R"("auth_key":"AuthKey+01..."})";
  const struct {
    std::string body;
    int code;
    std::string message;  // empty: the login's own refusal with the body
  } answers[] = {{"", KIVO_ERR_SEND, "Failed to send https request. err=[0x"},
                 {"<html>", KIVO_ERR_BAD_JSON, "Failed to parse json: <html>"},
                 {"[]", KIVO_ERR_RESPONSE, "bad response, no code"},
                 {"null", KIVO_ERR_RESPONSE, "bad response, no code"},
                 {R"({"code":0,"id":"1"})", KIVO_ERR_UNKNOWN, ""},
                 {R"({"code":"badauth"})", KIVO_ERR_AUTH, ""},
                 {R"({"code":"good","id":{},"auth_key":"k"})", KIVO_ERR_RESPONSE, " "},
                 {R"({"code":"good","id":"1","auth_key":["k"]})", KIVO_ERR_RESPONSE, " "}};
  for (const Login& login : kByServer) {
    for (const auto& answer : answers) {
      SCOPED_TRACE(login.name + ": " + answer.body);
      Bench bench;
      bench.cloud.AnswerAll(answer.body.empty() ? 503 : 200, answer.body);
      const std::string own = answer.message == " " ? "" : answer.message;  // no text is said for these
      ExpectFailure(bench, login, answer.code, answer.message.empty() ? login.refused + answer.body : own);
      EXPECT_EQ(1u, bench.cloud.Requests().size());
    }
    Bench bench;
    bench.cloud.AnswerAll(200, R"({"code":"badsys")" + secrets);
    ExpectFailure(bench, login, KIVO_ERR_SYSTEM, login.refused + R"({"code":"badsys")" + cut);
  }
}

TEST(Login, ApiKeyIsReplacedOnceWhenUnknownAndHandedOverOnceWhenExpired) {
  const std::string unknown = R"({"code":"apikey_not_found"})", expired = R"({"code":"apikey_expired"})";
  const struct {
    std::string first, second;
    int code;
    std::string message;  // empty: the login's own refusal with the last body
  } rows[] = {{unknown, "good", KIVO_ERR_SUCCESS, ""},
              {unknown, "", KIVO_ERR_APIKEY_NOT_FOUND, "VARNCloudServiceRegisterApiKey failed"},
              {unknown, unknown, KIVO_ERR_APIKEY_NOT_FOUND, ""},
              {unknown, "<html>", KIVO_ERR_BAD_JSON, "Failed to parse json: <html>"},
              {expired, "", KIVO_ERR_APIKEY_EXPIRED, ""}};
  for (const Login& login : kByServer) {
    for (const auto& row : rows) {
      SCOPED_TRACE(login.name + ": " + row.second);
      Bench bench;
      const bool isExpired = row.first == expired, isResent = !row.second.empty();
      for (const std::string& body : {row.first, row.second}) {
        kivosim::Fault fault = kivosim::Fault::Answer(400, body);
        fault.skipHandler = true;
        if (!body.empty() && body != "good") bench.cloud->QueueFault(login.path, fault);
      }
      if (!isResent && !isExpired) bench.device.FailNext("VARNCloudServiceRegisterApiKey");
      Json::Value ignored;
      const std::string refusal = login.refused + (isExpired ? row.first : row.second);
      if (row.code == KIVO_ERR_SUCCESS) {
        EXPECT_EQ(0, login.run(ignored));
      } else {
        ExpectFailure(bench, login, row.code, row.message.empty() ? refusal : row.message);
      }
      EXPECT_EQ(!isExpired, bench.device.Logs().at(0) == "ApiKey not found. Register new one.");
      EXPECT_EQ(isExpired ? 0u : 1u, bench.device.Calls("VARNCloudServiceRegisterApiKey").size());
      EXPECT_EQ(isExpired ? 1u : 0u, bench.device.Calls("VARNCloudServiceActionHandler(2)").size());
      const auto requests = bench.cloud.Requests(login.path);
      ASSERT_EQ(isResent ? 2u : 1u, requests.size());
      if (!isResent) continue;
      const std::string newKey = requests[1].Param("api_key");
      EXPECT_EQ(newKey + "\n", ReadFile(kApiKeyFile));
      bench.device.MustNotLog(newKey);
      auto expected = Texts(requests[0].form);
      std::replace(expected.begin(), expected.end(), std::string("api_key=") + kApiKey, "api_key=" + newKey);
      EXPECT_EQ(expected, Texts(requests[1].form));
    }
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

TEST(Login, QueryThatFailsIsNobodysBusinessButTheKeyLogins) {
  for (const std::string fault : {"badauth", "503", "<html>", "serial"}) {
    for (const Login& login : kAll) {
      SCOPED_TRACE(login.name + ": " + fault);
      const bool isKey = login.name == "key";
      Bench bench;
      if (isKey) bench.SignIn(301);  // an earlier account's record goes too
      if (fault == "serial") bench.device.FailAfter("VLIBGetSerialNumber", isKey ? 0 : 2);
      const std::string body = fault == "badauth" ? R"({"code":"badauth"})" : fault;
      bench.cloud->QueueFault(kQuery, kivosim::Fault::Answer(fault == "503" ? 503 : 200, body));
      Json::Value response;
      EXPECT_EQ(isKey ? -1 : 0, login.run(response));
      const int code = fault == "badauth"  ? KIVO_ERR_NO_ACCOUNT
                       : fault == "503"    ? KIVO_ERR_SEND
                       : fault == "serial" ? KIVO_ERR_SERIAL
                                           : KIVO_ERR_BAD_JSON;
      EXPECT_EQ(isKey ? KIVO_ERR_AUTH : code, VARNKIVOErrGet());
      EXPECT_EQ(isKey, bench.device.LastLog() == "VARNKIVOAccountQueryInfo failed");
      EXPECT_EQ(!isKey && fault != "badauth", IsThere(kRecord));
      EXPECT_EQ(isKey ? 0u : 3u, bench.Steps({"VLIBPluginAction", "ConfigManager", "VARNLogSet1"}).size());
    }
  }
}

TEST(Login, RecordAndConfigurationDecideToo) {
  Json::Value response;
  for (const Login& login : kAll) {
    for (const std::string value : {"yes", "YES"}) {
      Bench bench;
      WriteFile(kDeviceConf, "kivo_disable_report=\"" + value + "\"\n");
      EXPECT_EQ(0, login.run(response));
      EXPECT_EQ(value != "yes", IsThere(kCronJob)) << value;
    }
  }
  for (const std::string& language : {std::string(), std::string(40, 'x')}) {
    Bench bench;
    WriteFile(kDeviceConf, "language=\"" + language + "\"\n");
    bench.cloud.AnswerAll(200, R"({"code":"good","id":1001})");  // a number will do, and no key is stored as such
    EXPECT_EQ(0, kOauthLogin.run(response));
    EXPECT_EQ(language.empty() ? "enu" : language.substr(0, 31), bench.cloud.Requests().at(0).Param("language"));
    EXPECT_EQ("1001 ", User().GetUserId() + " " + User().GetAuthKey());
  }
  Bench bench;
  bench.SignIn(299);  // the record answers for a query so young, whatever the key
  EXPECT_EQ(0, VARNKIVOAccountLoginByKey(kUserId, "wrong", response));
  EXPECT_EQ("wrong", response["auth_key"].asString());
  EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
}

}  // namespace
