// The three logins: what is sent, stored and done in which order, and what a failure after the server's yes leaves.
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

TEST(Login, SendsExactlyItsParametersAndDoesItsStepsInOrder) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  const std::string id = "set kivoIDSerial", key = "set lu_auth_key", query = "VLIBCFileLockByFile";
  const std::string send = "curl_easy_perform", time = "set last_query_time";
  const std::string init = "VLIBPluginSDKInit", hook = "VLIBPluginAction";
  const std::string job = "ConfigManager::Save", event = "VARNLogSet1", apiKey = "VARNCloudServiceGetApiKey";
  const std::vector<std::string> byServer = {init, apiKey, send, id, key, job, event, query, send, time, hook};
  const std::string good = R"("code":"good","email":"ann@example.com","id":"1001"})";
  const struct {
    std::string name, body, response;
    std::vector<std::string> steps;
  } rows[] = {{"password",
               "&type=acnt_pw_apikey&email=ann%40example.com&passwd=correct%20horse%20%26%20%2Bbattery"
               "&serial_no=2040VKN000001&api_key=ApiKey-0123456789-abcdefghij&mac=02%3A00%3A5e%3A20%3A40%3A01",
               good, byServer},
              {"oauth",
               "&language=enu&access_token=AccessToken-0123456789-abcdefghij&timezone=Europe%2FBerlin"
               "&api_key=ApiKey-0123456789-abcdefghij&mac=02%3A00%3A5e%3A20%3A40%3A01&serial_no=2040VKN000001",
               good, byServer},
              {"key",
               "&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D&serial_no=2040VKN000001",
               R"("email":"ann@example.com"})",
               {apiKey, init, id, key, query, send, time, hook, job, event}}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Operation login = Named(row.name).at(0);
    Bench bench;
    Json::Value response;
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    ASSERT_EQ(0, login.run(response));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_THAT(JsonText(response), EndsWith(R"("auth_key":"AuthKey+0123456789/abcdef==",)" + row.response));
    EXPECT_EQ("POST /" + login.path + " account.kivo.example " + DeviceFields() + row.body, bench.Sent().at(0));
    EXPECT_EQ(row.name == "key" ? "CURLOPT_TIMEOUT(15)" : "CURLOPT_TIMEOUT(120)",
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

TEST(Login, FailureAfterTheYesKeepsWhatWasDoneBefore) {
  const struct {
    std::string call;
    int before, result, code;
    std::string message;
  } rows[] = {{"VLIBCFileSetKeyValue", 0, -1, KIVO_ERR_CONFIG_WRITE, "Failed to set user: "},
              {"VLIBCFileSetKeyValue", 1, -1, KIVO_ERR_CONFIG_WRITE, "Failed to set user: "},
              {"ConfigManager::Save", 0, 0, KIVO_ERR_SUCCESS, "Failed to add crontab for kivo"},
              {"VLIBPluginAction", 0, -1, KIVO_ERR_SUCCESS, "VLIBPluginAction failed, action=5"}};
  for (const Operation& login : Named("password oauth key")) {
    for (const auto& row : rows) {
      SCOPED_TRACE(login.name + ": " + row.message + std::to_string(row.before));
      Bench bench;
      bench.device.FailAfter(row.call, row.before, row.result);
      Json::Value response;
      EXPECT_EQ(row.call == "ConfigManager::Save" ? 0 : -1, login.run(response));
      EXPECT_EQ(row.code, VARNKIVOErrGet());
      EXPECT_THAT(bench.device.Logs(), testing::Contains(testing::StartsWith(row.message)));
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

TEST(Login, RecordAndConfigurationDecideToo) {
  Json::Value response;
  Bench bench;
  WriteFile(kDeviceConf, "kivo_disable_report=\"yes\"\nlanguage=\"" + std::string(40, 'x') + "\"\n");
  bench.cloud.AnswerAll(200, R"({"code":"good","id":1001})");  // a number will do, and no key is stored as such
  EXPECT_EQ(0, VARNKIVOAccountOauthLogin(response, kAccessToken));
  EXPECT_FALSE(IsThere(kCronJob));
  EXPECT_EQ(std::string(31, 'x'), bench.cloud.Requests().at(0).Param("language"));
  EXPECT_EQ("1001 ", User().GetUserId() + " " + User().GetAuthKey());
  bench.SignIn(299);  // the record answers for a query so young, whatever the key
  bench.cloud->ClearJournal();
  EXPECT_EQ(0, VARNKIVOAccountLoginByKey(kUserId, "wrong", response));
  EXPECT_EQ("wrong", response["auth_key"].asString());
  EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
}

}  // namespace
