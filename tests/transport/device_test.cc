// The device's serial number and token, the repair of its API key, and the hosts that it talks to. Expected tokens were
// computed by another program (Python's hashlib).
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>
#include <varnkivo/lum_service.h>
#include <varnkivo/server_info.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <memory>
#include <string>

#include "fake_platform.h"

using namespace testsupport;
using varnkivo::ServerInfo;
using varnkivo::User;

namespace {

TEST(DeviceToken, AgreesWithValuesComputedElsewhere) {
  const std::string id4000(4000, 'i');
  const struct {
    std::string serial, accountId, password;
    const char* token;
  } vectors[] = {
      {"2040VKN000005", "", "", "2b35e008d1dbf1d83950dd2ef1a31540"},  // first digit f: sixteen rounds
      {"", "", "", "e05e64f82e307a2d1e6d118caf7935d0"},               // the device's own
      {"2040VKN000001", "a@b.c", "p\xc3\xa4 \xc3\x9f", "97b2ab91291e5f3694191733af1048a7"},
      {"S", id4000, std::string(94, 'p'), "c81e22a5f2fb5b068d5bba871088dff8"},  // 4095 characters, the most in a round
      {"S", std::string(4095, 'i'), std::string(4095, 'p'), "7347e80d63471668ad92d155fd2715d5"},
  };
  FakePlatform device;
  for (const auto& vector : vectors) {
    SCOPED_TRACE(vector.token);
    char serial[36] = "";
    vector.serial.copy(serial, sizeof serial);
    const std::unique_ptr<char[]> token(new char[33]);  // exactly as large as it must be
    const char* const id = vector.accountId.empty() ? nullptr : vector.accountId.c_str();  // null counts as empty
    EXPECT_EQ(0, VARNKIVOGenerateToken(id, vector.password.c_str(), serial, sizeof serial, token.get(), 33));
    EXPECT_STREQ(vector.token, token.get());
    EXPECT_EQ(vector.serial.empty() ? "2040VKN000001" : vector.serial, serial);
    EXPECT_EQ(0, VARNKIVOGenerateToken(id, vector.password.c_str(), serial, sizeof serial, token.get(), 10));
    EXPECT_EQ(std::string(vector.token, 9), token.get());
  }
}

TEST(DeviceToken, EachFailureIsLoggedAndLeavesTheSlotAlone) {
  const struct {
    const char *call, *configured, *given;  // what fails, serial number of the device, and that given or no buffer
    std::string log;
  } cases[] = {{"VLIBGetSerialNumber", "S1", "", "Failed to get serial number from flash. [0x0700 fake.c:1]"},
               {"", "-S1", "", "Serial number is invalid: [-S1][0x"},
               {"", "S1", "_", "Serial number is invalid: [_][0x"},
               {"", "S1", nullptr, "Wrong parameters"},
               {"VLIBCStrCat", "S1", "S1", "Fail to concat string"}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.log);
    FakePlatform device;
    device.MustNotLog("canary-password");
    WriteFile("/usr/varn/etc/host.conf", std::string("serial=\"") + row.configured + "\"\n");
    if (*row.call) device.FailNext(row.call);
    char serial[36] = {}, token[33] = "untouched";
    if (row.given) std::snprintf(serial, sizeof serial, "%s", row.given);
    VARNKIVOErrSet(99);
    EXPECT_EQ(-1, VARNKIVOGenerateToken("id", "canary-password", row.given ? serial : nullptr, 36, token, 33));
    EXPECT_EQ(99, VARNKIVOErrGet());
    EXPECT_EQ(0u, device.LastLine().find("kivo_token_generation " + row.log)) << device.LastLine();
    EXPECT_STREQ("untouched", token);
  }
}

TEST(ApiKeyError, IsRepairedWhereAKeyIsUnknownOnly) {
  const struct {
    const char *error, *call;
    int result, code;
  } rows[] = {{nullptr, "", -1, 1},
              {"apikey_not_found", "VARNCloudServiceRegisterApiKey(*)", 0, 26},
              {"apikey_expired", "VARNCloudServiceActionHandler(2)", -1, 27},
              {"good", "", -1, 0}};
  for (const auto& row : rows) {
    FakePlatform device;
    Json::Value result;
    EXPECT_EQ(row.result, VARNKIVOHandleApiKeyError(result, row.error));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
    EXPECT_EQ(*row.call ? std::vector<std::string>{row.call} : std::vector<std::string>(),
              device.Calls("VARNCloudService"));
    EXPECT_EQ(row.result == 0, result["api_key"] == varnkivo::LumService().GetApiKey());
  }
}

TEST(ServerHosts, OnlyTheExactWordSelectsTheTestServersAndTheRecordComesFirst) {
  const struct {
    const char *configuration, *kind;
  } cases[] = {{"a=\"b\"\nvarnpkg_server=test\n", "-test"}, {"varnpkg_server=\"Test\"\n", ""}, {nullptr, ""}};
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
    EXPECT_EQ(0, VARNKIVOServerConfigGet(config));
    EXPECT_EQ("https://" + std::string(2039, 'h'), config + 2048);
  }
}

}  // namespace
