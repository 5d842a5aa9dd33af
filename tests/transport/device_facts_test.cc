// The device's notifications, the repair of its API key, and the hosts that it talks to.
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>
#include <varnkivo/lum_service.h>
#include <varnkivo/server_info.h>
#include <varnkivo/user.h>

#include "fake_platform.h"

using namespace testsupport;
using varnkivo::LumService;
using varnkivo::ServerInfo;
using varnkivo::User;

namespace {

TEST(ApiKeyError, IsRepairedWhereAKeyIsUnknownOnly) {
  const struct {
    const char* error;
    int result, code;
    std::vector<std::string> logs, calls;
  } cases[] = {
      {nullptr, -1, 1, {"Bad Parameters"}, {}},
      {"apikey_not_found", 0, 26, {"ApiKey not found. Register new one."}, {"VARNCloudServiceRegisterApiKey(*)"}},
      {"apikey_expired", -1, 27, {}, {"VARNCloudServiceActionHandler(2)"}},
      {"good", -1, 0, {"VARNKIVOHandleApiKeyError failed, error=0"}, {}}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.error ? row.error : "null");
    FakePlatform device;
    Json::Value result;
    VARNKIVOErrSet(99);
    EXPECT_EQ(row.result, VARNKIVOHandleApiKeyError(result, row.error));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_EQ(row.logs, device.Logs());
    EXPECT_EQ(row.calls, device.Calls("VARNCloudService"));
    EXPECT_EQ(row.result == 0, result["api_key"] == LumService().GetApiKey());
  }
}

std::string Hosts(bool test) {
  const std::string kind = test ? "-test" : "";
  return "https://account" + kind + ".kivo.example https://identity" + kind + ".kivo.example https://payment" + kind +
         ".kivo.example";
}

TEST(ServerHosts, OnlyTheExactWordSelectsTheTestServersAndTheRecordComesFirst) {
  const struct {
    const char* configuration;
    bool test;
  } cases[] = {{"a=\"b\"\nvarnpkg_server=test\n", true},
               {"varnpkg_server=\"Test\"\n", false},
               {"varnpkg_server=\"testing\"\n", false},
               {nullptr, false}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.configuration ? row.configuration : "no file");
    FakePlatform device;
    WriteFile(kDefaultsConf, row.configuration ? row.configuration : "");
    if (!row.configuration) unlink(kDefaultsConf);
    const ServerInfo server;
    EXPECT_EQ(Hosts(row.test),
              server.GetAccountHost() + " " + server.GetIdentityHost() + " " + server.GetPaymentHost());
    char config[4096], url[2048];
    EXPECT_TRUE(VARNKIVOServerConfigGet(config) == 0 && VARNPaymentConfigGet(url) == 0);
    EXPECT_EQ(server.GetPaymentHost() + server.GetAccountHost() + server.GetPaymentHost(),
              std::string(config) + (config + 2048) + url);
    User().SetAccountHost("https://" + std::string(2039, 'h'));
    User().SetIdentityHost("http://id.example:1/x/");
    EXPECT_EQ(0, VARNKIVOServerConfigGet(config));
    EXPECT_EQ("https://" + std::string(2039, 'h'), config + 2048);
    EXPECT_EQ("http://id.example:1/x/", server.GetIdentityHost());
  }
}

}  // namespace
