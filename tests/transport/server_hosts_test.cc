// Which host a device talks to.
#include <gtest/gtest.h>
#include <unistd.h>
#include <varnkivo/server_info.h>
#include <varnkivo/user.h>

#include <cstring>
#include <memory>

#include "fake_platform.h"

using namespace testsupport;
using varnkivo::ServerInfo;
using varnkivo::User;

namespace {

std::string Host(const std::string& family, bool test) {
  return "https://" + family + (test ? "-test" : "") + ".kivo.example";
}

TEST(ServerHosts, OnlyTheExactWordSelectsTheTestServers) {
  const struct {
    const char* configuration;
    bool test;
  } cases[] = {{"varnpkg_server=\"test\"\n", true},
               {"a=\"b\"\nvarnpkg_server=test\n", true},
               {"varnpkg_server=\"Test\"\n", false},
               {"varnpkg_server=\"test \"\n", false},
               {"varnpkg_server=\" test\"\n", false},
               {"varnpkg_server=\"testing\"\n", false},
               {"varnpkg_server=\"tes\"\n", false},
               {"varnpkg_server=\"\"\n", false},
               {"varnpkg_server_x=\"test\"\n", false},
               {"", false},
               {nullptr, false}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.configuration ? row.configuration : "no file");
    FakePlatform device;
    if (row.configuration)
      FakePlatform::Write(kDefaultsConf, row.configuration);
    else
      ASSERT_EQ(0, unlink(kDefaultsConf));
    const ServerInfo server;
    EXPECT_EQ(Host("account", row.test), server.GetAccountHost());
    EXPECT_EQ(Host("identity", row.test), server.GetIdentityHost());
    EXPECT_EQ(Host("payment", row.test), server.GetPaymentHost());
    VARNKIVOErrSet(99);
    const std::unique_ptr<char[]> config(new char[4096]), url(new char[2048]);
    EXPECT_EQ(0, VARNKIVOServerConfigGet(config.get()));
    EXPECT_EQ(Host("payment", row.test), config.get());
    EXPECT_EQ(Host("account", row.test), config.get() + 2048);
    EXPECT_EQ(0, VARNPaymentConfigGet(url.get()));
    EXPECT_EQ(Host("payment", row.test), url.get());
  }
}

TEST(ServerHosts, TheRecordComesFirstForAccountAndIdentityAsItStands) {
  for (const bool test : {false, true}) {
    FakePlatform device;
    FakePlatform::Write(kDefaultsConf, test ? "varnpkg_server=\"test\"\n" : "");
    const ServerInfo server;
    User().SetAccountHost("https://my.example:8443/x/");
    EXPECT_EQ("https://my.example:8443/x/", server.GetAccountHost());
    EXPECT_EQ(Host("identity", test), server.GetIdentityHost());
    User().SetIdentityHost("http://id.example");
    EXPECT_EQ("http://id.example", server.GetIdentityHost());
    EXPECT_EQ(Host("payment", test), server.GetPaymentHost());
    const std::string longest = "https://" + std::string(2039, 'h');
    User().SetAccountHost(longest);
    char config[4096];
    EXPECT_EQ(0, VARNKIVOServerConfigGet(config));
    EXPECT_EQ(longest, config + 2048);
    EXPECT_EQ(Host("payment", test), config);
  }
}

TEST(ServerHosts, AnUnreadableRecordIsOnlyLogged) {
  FakePlatform device;
  User().SetAccountHost("https://my.example");
  ASSERT_EQ(0, seteuid(1000));
  device.FailNext("setresuid", 50);
  const std::string account = ServerInfo().GetAccountHost();
  const std::string afterAccount = device.LastLog(), source = device.LastLogSource();
  const std::string identity = ServerInfo().GetIdentityHost();
  const std::string afterIdentity = device.LastLog();
  device.StopFailing();
  ASSERT_EQ(0, seteuid(0));
  EXPECT_EQ(Host("account", false), account);
  EXPECT_EQ("Failed to get user defined account host", afterAccount);
  EXPECT_EQ("server_info", source);
  EXPECT_EQ(Host("identity", false), identity);
  EXPECT_EQ("Failed to get user defined identity host", afterIdentity);
}

TEST(ServerHosts, NullAndNoMemoryAreCodes) {
  FakePlatform device;
  EXPECT_EQ(-1, VARNKIVOServerConfigGet(nullptr));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  VARNKIVOErrSet(0);
  EXPECT_EQ(-1, VARNPaymentConfigGet(nullptr));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  char url[2048] = "untouched";
  device.FailAllocation(1);
  EXPECT_EQ(-1, VARNPaymentConfigGet(url));
  EXPECT_TRUE(device.AllocationFailed());
  EXPECT_EQ(KIVO_ERR_SYSTEM, VARNKIVOErrGet());
  EXPECT_STREQ("untouched", url);
  EXPECT_EQ("VARNKIVOServerConfigGet, code=6", device.LastLog());
  EXPECT_EQ("kivo_server_config_get", device.LastLogSource());
}

}  // namespace
