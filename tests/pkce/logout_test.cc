// The sign-out: what it sends, and that it leaves nothing.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include "pkce_bench.h"

using namespace pkcetest;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

void LeaveTraces(Bench& bench) {
  bench.SignIn(0);
  bench.StoreTokens(0);
  EXPECT_TRUE(VARNKIVOAccountRegisterCrond());
  for (const char* name : {"/photos_token.json", "/lum,left_token.json"})
    WriteFile(kPrivateFolder + std::string(name), "{}");
}

TEST(Logout, TellsTheAccountHostAndLeavesNothing) {
  Bench bench;
  LeaveTraces(bench);
  VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
  EXPECT_EQ(0, VARNKIVOAccountLogout(true));
  EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
  const auto request = bench.cloud.Requests(kLogoutPath).at(0);
  EXPECT_THAT(request.body,
              StartsWith("serial_no=2040VKN000001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D&access_token="));
  EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  EXPECT_FALSE(IsThere(kRecord) || IsThere(kCronJob));
  EXPECT_THAT(TokenFiles(), IsEmpty());
  EXPECT_THAT(
      bench.Steps({"VLIBCProcFork", "ConfigManager", "VARNLogSet1", "VLIBCExecl"}),
      ElementsAre("ConfigManager::Save", "VLIBCProcFork", "ConfigManager::Remove", "VARNLogSet1", "VLIBCExecl"));
  EXPECT_THAT(bench.device.Calls("VARNLogSet1("), ElementsAre("VARNLogSet1(2,1,329252866,,,,)"));
  EXPECT_THAT(bench.device.Logs(), Contains("Logged out Varnholt Account: ann@example.com"));
}

TEST(Logout, LocallyItAsksNobodyAndGoesOnWhateverFails) {
  Bench bench;
  LeaveTraces(bench);
  for (const char* call : {"VLIBCProcFork", "VLIBCExecl"}) bench.device.FailNext(call);
  bench.device.FailNext("ConfigManager::Remove", 1, 0);
  EXPECT_EQ(0, VARNKIVOAccountLogout(false));
  EXPECT_EQ("Logged out Varnholt Account: ann@example.com", bench.device.Logs()[0]);
  EXPECT_EQ("account_pkce_service Failed to clear token files", bench.device.LastLine());
  EXPECT_EQ("0", AsUser(934, 934, 934, [] { return std::to_string(VARNKIVOAccountLogout(false)); }));
  EXPECT_FALSE(IsThere(kRecord)) << "the service's own user can clear the account's files";
  EXPECT_THAT(TokenFiles(), IsEmpty());
  LeaveTraces(bench);
  WriteTokenFile("{}");
  EXPECT_EQ(-1, VARNKIVOAccountLogout(true)) << "without an access token there is nothing to send";
  EXPECT_EQ(KIVO_ERR_TOKEN, VARNKIVOErrGet());
  EXPECT_TRUE(unlink(kRecord) == 0 && IsThere(kTokenFile));
  EXPECT_EQ(0, VARNKIVOAccountLogout(true)) << "without a record nothing is sent, and the tokens go";
  EXPECT_FALSE(IsThere(kCronJob));
  EXPECT_THAT(TokenFiles(), IsEmpty());
  EXPECT_EQ(0u, bench.cloud->Connections());
}

}  // namespace
