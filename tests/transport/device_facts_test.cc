// Facts and services of the device, the repair of its API key, and the hosts that it talks to.
#include <gmock/gmock.h>
#include <json/json.h>
#include <unistd.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/lum_service.h>
#include <varnkivo/server_info.h>
#include <varnkivo/user.h>

#include "fake_platform.h"

using namespace testsupport;
using testing::ElementsAre;
using varnkivo::LumService;
using varnkivo::ServerInfo;
using varnkivo::User;

namespace {

TEST(LumService, EachFactComesFromItsCallOrFailsWithItsCode) {
  const struct {
    std::string (LumService::*get)() const;
    const char *call, *arguments, *message;
    int cloudError, code;
  } facts[] = {
      {&LumService::GetSerialNo, "VLIBGetSerialNumber", "(*,36)", "Failed to get serial number, err=[0x0700 fake.c:1]",
       -1, 8},
      {&LumService::GetMac, "VARNLuinfoCloudServiceGetMacAddress", "(*,24)", "Failed to get mac address", -1, 20},
      {&LumService::GetApiKey, "VARNCloudServiceGetApiKey", "(*,1)", "Failed to get apikey", 1, 15},
      {&LumService::NewApiKey, "VARNCloudServiceRegisterApiKey", "(*)", "Failed to register apikey", 9, 28},
  };
  for (const auto& fact : facts) {
    SCOPED_TRACE(fact.call);
    FakePlatform device;
    const LumService service;
    VARNKIVOErrSet(99);
    EXPECT_NE("", (service.*fact.get)());
    EXPECT_THAT(device.Calls(), ElementsAre(fact.call + std::string(fact.arguments)));
    device.FailNext(fact.call);
    if (fact.cloudError >= 0) device.FailNext("VARNCloudServiceGetErrorCode", 1, fact.cloudError);
    try {
      (service.*fact.get)();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const varnkivo::KivoException& error) {
      EXPECT_EQ(fact.code, error.GetCode());
    }
    EXPECT_EQ(std::string("lum_service ") + fact.message, device.LastLine());
    EXPECT_EQ(99, VARNKIVOErrGet());
  }
}

TEST(LumService, NotificationsGoOutWithWhatCouldBeStoredAndNeverThrow) {
  const struct {
    const char* call;  // fails
    std::vector<std::string> logs;
    bool sent;
  } cases[] = {
      {"VLIBCSzHashAlloc", {"Failed to notify: out of memory"}, false},
      {"VLIBCSzHashSetValue", {"Failed to set notify param: %A% => 1"}, true},
      {"VARNSysNotifySendNotifiction", {"Failed to send notify by VARNSysNotifySendNotifiction"}, true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.call);
    FakePlatform device;
    device.FailNext(row.call);
    LumService().SendSysNotify("KivoTest", {{"%A%", "1"}, {"%B%", "2"}});
    EXPECT_EQ(row.logs, device.Logs());
    EXPECT_EQ(row.sent ? 2u : 0u, device.Calls("VLIBCSzHashSetValue").size());
    EXPECT_EQ(row.sent ? 1u : 0u, device.Calls("VARNSysNotifySendNotifiction(KivoTest,*)").size());
  }
}

TEST(UserAgent, IsCutToItsBufferAndRefusesNone) {
  FakePlatform device;
  char few[5];
  EXPECT_EQ(0, VARNKIVOUserAgentNameGet(few, sizeof few));
  EXPECT_EQ(LumService().GetUserAgent().substr(0, 4), few);
  for (const int size : {0, -1, 16}) {
    VARNKIVOErrSet(99);
    EXPECT_EQ(-1, VARNKIVOUserAgentNameGet(size > 0 ? nullptr : few, size));
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  }
}

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
  } cases[] = {{"a=\"b\"\nvarnpkg_server=test\n", true}, {"varnpkg_server=\"Test\"\n", false},
               {"varnpkg_server=\"test \"\n", false},    {"varnpkg_server=\"testing\"\n", false},
               {"varnpkg_server=\"tes\"\n", false},      {nullptr, false}};
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
    const std::string longest = "https://" + std::string(2039, 'h');
    User().SetAccountHost(longest);
    User().SetIdentityHost("http://id.example:1/x/");
    EXPECT_EQ(0, VARNKIVOServerConfigGet(config));
    EXPECT_EQ(longest, config + 2048);
    EXPECT_EQ(server.GetPaymentHost(), config);
    EXPECT_EQ(longest + "http://id.example:1/x/", server.GetAccountHost() + server.GetIdentityHost());
  }
  for (const auto& call : {&VARNKIVOServerConfigGet, &VARNPaymentConfigGet}) {
    VARNKIVOErrSet(99);
    EXPECT_EQ(-1, call(nullptr));
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  }
}

TEST(ServerHosts, AnUnreadableRecordIsOnlyLogged) {
  FakePlatform device;
  User().SetAccountHost("https://my.example");
  ASSERT_EQ(0, seteuid(1000));
  device.FailNext("setresuid", 50);
  std::string hosts = ServerInfo().GetAccountHost();
  hosts += " " + ServerInfo().GetIdentityHost();
  device.StopFailing();
  ASSERT_EQ(0, seteuid(0));
  EXPECT_EQ(0u, Hosts(false).find(hosts));
  EXPECT_TRUE(device.HasLog("Failed to get user defined account host"));
  EXPECT_EQ("server_info Failed to get user defined identity host", device.LastLine());
}

}  // namespace
