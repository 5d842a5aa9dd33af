// Facts and services of the device through LumService, the user agent, and the repair of the API key.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/lum_service.h>

#include "fake_platform.h"

using namespace testsupport;
using testing::ElementsAre;
using varnkivo::KivoException;
using varnkivo::LumService;

namespace {

using Getter = std::string (LumService::*)() const;

TEST(LumService, EachFactComesFromItsCallOrFailsWithItsCode) {
  const struct {
    Getter get;
    const char *call, *arguments, *message;
    int cloudError, code;
  } facts[] = {
      {&LumService::GetSerialNo, "VLIBGetSerialNumber", "(*,36)", "Failed to get serial number, err=[0x0700 fake.c:1]",
       0, 8},
      {&LumService::GetMac, "VARNLuinfoCloudServiceGetMacAddress", "(*,24)", "Failed to get mac address", 0, 20},
      {&LumService::GetApiKey, "VARNCloudServiceGetApiKey", "(*,1)", "Failed to get apikey", 1, 15},
      {&LumService::GetApiKey, "VARNCloudServiceGetApiKey", "(*,1)", "Failed to get apikey", 2, 24},
      {&LumService::GetApiKey, "VARNCloudServiceGetApiKey", "(*,1)", "Failed to get apikey", 9, 28},
      {&LumService::NewApiKey, "VARNCloudServiceRegisterApiKey", "(*)", "Failed to register apikey", 9, 28},
      {&LumService::NewApiKey, "VARNCloudServiceRegisterApiKey", "(*)", "Failed to register apikey", 0, 0},
  };
  for (const auto& fact : facts) {
    SCOPED_TRACE(fact.call);
    FakePlatform device;
    VARNKIVOErrSet(99);
    EXPECT_NE("", (LumService().*fact.get)());
    EXPECT_THAT(device.Calls(), ElementsAre(fact.call + std::string(fact.arguments)));
    device.FailNext(fact.call);
    const bool cloud = fact.message == std::string("Failed to get apikey") || fact.code == 28 || fact.code == 0;
    if (cloud) device.FailNext("VARNCloudServiceGetErrorCode", 1, fact.cloudError);
    try {
      (LumService().*fact.get)();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const KivoException& error) {
      EXPECT_EQ(fact.code, error.GetCode());
    }
    EXPECT_EQ(fact.message, device.LastLog());
    EXPECT_EQ("lum_service", device.LastLogSource());
    EXPECT_EQ(99, VARNKIVOErrGet());
  }
}

TEST(LumService, FactsAreReadAfreshAndKeysReplaced) {
  FakePlatform device;
  const LumService service;
  EXPECT_EQ("2040VKN000001", service.GetSerialNo());
  EXPECT_EQ("02:00:5e:20:40:01", service.GetMac());
  FakePlatform::Write("/usr/varn/etc/host.conf", "serial=\"OTHER1\"\nmac=\"02:00:00:00:00:09\"\n");
  EXPECT_EQ("OTHER1", service.GetSerialNo());
  EXPECT_EQ("02:00:00:00:00:09", service.GetMac());
  const std::string first = service.GetApiKey();
  EXPECT_EQ(first, service.GetApiKey());
  const std::string second = service.NewApiKey();
  EXPECT_NE(first, second);
  EXPECT_EQ(second, service.GetApiKey());
}

TEST(LumService, NotificationsGoOutWithWhatCouldBeStoredAndNeverThrow) {
  const struct {
    const char* call;  // fails
    std::vector<std::string> logs;
    bool sent;
  } cases[] = {
      {"", {}, true},
      {"VLIBCSzHashAlloc", {"Failed to notify: out of memory"}, false},
      {"VLIBCSzHashSetValue", {"Failed to set notify param: %A% => 1"}, true},
      {"VARNSysNotifySendNotifiction", {"Failed to send notify by VARNSysNotifySendNotifiction"}, true},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.call);
    FakePlatform device;
    if (*row.call) device.FailNext(row.call);
    LumService().SendSysNotify("KivoTest", {{"%A%", "1"}, {"%B%", "2"}});
    EXPECT_EQ(row.logs, device.Logs());
    EXPECT_EQ(row.sent ? 2u : 0u, device.Calls("VLIBCSzHashSetValue").size());
    EXPECT_EQ(row.sent ? 1u : 0u, device.Calls("VARNSysNotifySendNotifiction(KivoTest,*)").size());
    EXPECT_THAT(device.Calls("VLIBCSzHashAlloc"), ElementsAre("VLIBCSzHashAlloc(1024)"));
  }
  FakePlatform device;
  LumService().SendSysNotify("KivoEmpty", {});
  EXPECT_EQ(1u, device.Calls("VARNSysNotifySendNotifiction(KivoEmpty,*)").size());
}

TEST(UserAgent, APlatformWithoutOneIsOnlyLogged) {
  FakePlatform device;
  const LumService service;
  const std::string agent = service.GetUserAgent();
  EXPECT_THAT(device.Calls(), ElementsAre("VLIBLuinfoUserAgentGet(kivo,*,256)"));
  EXPECT_NE("", agent);
  char few[5], kept[16] = "kept", one[1];
  EXPECT_EQ(0, VARNKIVOUserAgentNameGet(few, sizeof few));
  EXPECT_EQ(agent.substr(0, 4), few);
  EXPECT_EQ(0, VARNKIVOUserAgentNameGet(one, 1));
  EXPECT_EQ('\0', one[0]);
  EXPECT_TRUE(device.Lines().empty());
  device.FailNext("VLIBLuinfoUserAgentGet", 2);
  EXPECT_EQ(0, VARNKIVOUserAgentNameGet(kept, sizeof kept));
  EXPECT_STREQ("kept", kept);
  EXPECT_EQ("", service.GetUserAgent());
  EXPECT_EQ("VLIBLuinfoUserAgentGet failed, varnerr=[0x0700 fake.c:1]", device.LastLog());
  EXPECT_EQ("kivo_agent_name_get", device.LastLogSource());
  for (const int size : {0, -1}) {
    VARNKIVOErrSet(99);
    EXPECT_EQ(-1, VARNKIVOUserAgentNameGet(kept, size));
    EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  }
  VARNKIVOErrSet(99);
  EXPECT_EQ(-1, VARNKIVOUserAgentNameGet(nullptr, 16));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
}

TEST(ApiKeyError, IsRepairedWhereAKeyIsUnknownOnly) {
  const struct {
    const char* error;
    const char* failing;
    int result, code;
    std::vector<std::string> logs, calls;
  } cases[] = {
      {nullptr, "", -1, 1, {"Bad Parameters"}, {}},
      {"apikey_not_found", "", 0, 26, {"ApiKey not found. Register new one."}, {"VARNCloudServiceRegisterApiKey(*)"}},
      {"apikey_not_found",
       "VARNCloudServiceRegisterApiKey",
       -1,
       26,
       {"ApiKey not found. Register new one.", "VARNCloudServiceRegisterApiKey failed"},
       {"VARNCloudServiceRegisterApiKey(*)"}},
      {"apikey_expired", "", -1, 27, {}, {"VARNCloudServiceActionHandler(2)"}},
      {"apikey_expired", "VARNCloudServiceActionHandler", -1, 27, {}, {"VARNCloudServiceActionHandler(2)"}},
      {"badauth", "", -1, 14, {"VARNKIVOHandleApiKeyError failed, error=14"}, {}},
      {"good", "", -1, 0, {"VARNKIVOHandleApiKeyError failed, error=0"}, {}},
      {"?", "", -1, 24, {"VARNKIVOHandleApiKeyError failed, error=24"}, {}},
  };
  for (const auto& row : cases)
    for (const Json::Value& start : {Json::Value(), Json::Value(Json::objectValue)}) {
      SCOPED_TRACE(row.error ? row.error : "null");
      FakePlatform device;
      if (*row.failing) device.FailNext(row.failing);
      Json::Value result = start;
      VARNKIVOErrSet(99);
      EXPECT_EQ(row.result, VARNKIVOHandleApiKeyError(result, row.error));
      EXPECT_EQ(row.code, VARNKIVOErrGet());
      EXPECT_EQ(row.logs, device.Logs());
      EXPECT_EQ(row.calls, device.Calls("VARNCloudService"));
      EXPECT_EQ(row.logs.empty() ? "" : "kivo_get_iframe_info", device.LastLogSource());
      if (row.result == 0) {
        EXPECT_EQ(LumService().GetApiKey(), result["api_key"].asString());
      } else {
        EXPECT_EQ(start, result);
      }
    }
}

}  // namespace
