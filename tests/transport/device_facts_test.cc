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

TEST(ServerHosts, OnlyTheExactWordSelectsTheTestServersAndTheRecordComesFirst) {
  const struct {
    const char *configuration, *kind;
  } cases[] = {{"a=\"b\"\nvarnpkg_server=test\n", "-test"},
               {"varnpkg_server=\"Test\"\n", ""},
               {"varnpkg_server=\"testing\"\n", ""},
               {nullptr, ""}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.configuration ? row.configuration : "no file");
    FakePlatform device;
    WriteFile(kDefaultsConf, row.configuration ? row.configuration : "");
    if (!row.configuration) unlink(kDefaultsConf);
    const std::string end = std::string(row.kind) + ".kivo.example", account = "https://account" + end;
    const ServerInfo server;
    char config[4096], url[2048];
    EXPECT_TRUE(VARNKIVOServerConfigGet(config) == 0 && VARNPaymentConfigGet(url) == 0);
    for (const std::string& payment : {server.GetPaymentHost(), std::string(config), std::string(url)})
      EXPECT_EQ("https://payment" + end, payment);
    EXPECT_EQ(account + account, server.GetAccountHost() + (config + 2048));
    EXPECT_EQ("https://identity" + end, server.GetIdentityHost());
    User().SetAccountHost("https://" + std::string(2039, 'h'));
    User().SetIdentityHost("http://id.example:1/x/");
    EXPECT_EQ(0, VARNKIVOServerConfigGet(config));
    EXPECT_EQ("https://" + std::string(2039, 'h'), config + 2048);
    EXPECT_EQ("http://id.example:1/x/", server.GetIdentityHost());
  }
}

}  // namespace
