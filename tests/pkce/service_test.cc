// The device's own sign-in and sign-out: what they send and do in which order, how the sign-in heals itself, where it
// gives up, and that a sign-out leaves nothing.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/account_service.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include "pkce_bench.h"

using namespace pkcetest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using varnkivo::AccountPkceService;
using varnkivo::User;

namespace {

const std::string kGrant = "POST /" + std::string(kGrantPath) + " account.kivo.example client_id=kivo-device&";
const std::string kToken = "POST /oauth2/token identity.kivo.example grant_type=";
const std::string kCallback = "https%3A%2F%2Faccount.kivo.example%2Fdevice%2Flogin%2Fcallback";

std::string Token(const AccountPkceService& service) {
  return Result([&] { return service.GetAccessToken(), std::string("token"); });
}

TEST(Service, ATokenIsGrantedToTheAuthKeyWhereThereIsNone) {
  Bench bench;
  bench.SignIn(0);
  const AccountPkceService service;
  EXPECT_TRUE(service.HasToken());
  const auto requests = bench.cloud.Requests();
  ASSERT_EQ(2u, requests.size());
  EXPECT_THAT(requests[0].body,
              MatchesRegex("client_id=kivo-device&redirect_url=" + kCallback +
                           "&state=1800000000&code_challenge=[A-Za-z0-9_-]{43}&auth_key=AuthKey%2B0123456789%2F"
                           "abcdef%3D%3D&scopes\\[\\]=openid&scopes\\[\\]=offline_access&scopes\\[\\]=profile"
                           "&scopes\\[\\]=email&scopes\\[\\]=device.sn%3A2040VKN000001"
                           "&scopes\\[\\]=device.mac%3A02%3A00%3A5e%3A20%3A40%3A01"));
  EXPECT_THAT(requests[0].raw, HasSubstr("\r\nX-Client-ID: kivo-device\r\n"));
  EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  EXPECT_EQ("token", Token(service));
  EXPECT_EQ(2u, bench.cloud.Requests().size()) << "the token lasts";
  unlink(kTokenFile);
  bench.device.FailNext("varn_challenge_verifier_no_save");
  EXPECT_EQ("code 6: Failed to get code challenge & verifier", Token(service));
}

TEST(Service, OnlyARefusedRefreshTokenIsReplacedByAGrantOrByASignOut) {
  const std::string renewal = kToken + "refresh_token&", exchange = kToken + "authorization_code&";
  const std::string logout = "POST /device/api/logout account.kivo.example serial_no=2040VKN000001&auth_key=" +
                             std::string("AuthKey%2B0123456789%2Fabcdef%3D%3D");  // no access token: it could lead here
  const std::vector<std::string> out = {renewal, kGrant, logout};
  const std::string forced = "Failed to rescue by authkey, force logout";
  const struct {
    std::string path, body;  // answers that so; what has no answer is asked of the simulator
    int status;
    std::string result;
    std::vector<std::string> sent;  // as each begins
    bool signedIn = true;
    std::string logged = "";
  } rows[] = {
      {kTokenPath, "[]", 200, "code 5", {renewal}},
      {kTokenPath, "down", 500, "code 2", {renewal}},
      {kTokenPath, "{}", 200, "code 22", {renewal}},
      {"", "", 0, "token", {renewal, kGrant, exchange}, true, "Rescue lum renew pkce token by authkey"},
      {kGrantPath, "gone", 401, "code 22: Failed to find an existed token file", out, false, forced},
      {kLogoutPath, R"({"code":"badsys"})", 200, "code 6: Failed to logout with success code", out, true, forced}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path + row.body);
    Bench bench;
    bench.SignIn(0);
    bench.StoreTokens(2 * kHour);
    bench.cloud->RevokeTokens(kEmail);
    if (!row.path.empty()) bench.Answer(row.path, row.body, row.status);
    if (row.path == kLogoutPath) bench.Answer(kGrantPath, "gone", 401);
    const AccountPkceService service;
    EXPECT_THAT(Token(service), StartsWith(row.result));
    const auto sent = bench.Sent();
    ASSERT_EQ(row.sent.size(), sent.size());
    for (std::size_t i = 0; i < sent.size(); ++i) EXPECT_THAT(sent[i], StartsWith(row.sent[i]));
    EXPECT_TRUE(row.sent.back() != logout || sent.back() == logout);
    EXPECT_TRUE(row.logged.empty() || bench.device.HasLog(row.logged));
    EXPECT_EQ(row.signedIn, IsThere(kRecord));
    EXPECT_EQ(row.signedIn, IsThere(kTokenFile));
    EXPECT_TRUE(row.signedIn || !service.HasToken());
  }
}

TEST(Service, AGrantThatASignOutHasOvertakenBringsNothingBack) {
  Bench bench;
  bench.SignIn(0);
  bench.cloud->SetHook([](const kivosim::Request& request) -> std::optional<kivosim::Response> {
    if (request.path == std::string("/") + kTokenPath) unlink(kRecord);
    return std::nullopt;
  });
  EXPECT_THAT(Token(AccountPkceService()), StartsWith("code 22: "));
  EXPECT_EQ(2u, bench.cloud.Requests().size());
  EXPECT_THAT(TokenFiles(), IsEmpty());
}

TEST(Service, LoginDoesItsStepsInOrder) {
  Bench bench;
  WriteRecord("kivoIDSerial=\"7\"\nlu_auth_key=\"old\"\nlast_query_time=\"0\"\n");
  const AccountPkceService service("https://account-test.kivo.example", "");
  const Json::Value account = service.Login(FinishedBrowserLogin(bench));
  EXPECT_EQ(kEmail, account["email"].asString());
  EXPECT_THAT(bench.Sent(),
              ElementsAre(StartsWith(kToken + "authorization_code&client_id=kivo-device&redirect_uri=" + kCallback),
                          "POST /oauth2/api/v1/device/core/authkey/exchange account-test.kivo.example ",
                          StartsWith("POST /device/api/user/query account-test.kivo.example ")));
  const std::string raw = bench.cloud.Requests()[1].raw;
  EXPECT_THAT(raw, HasSubstr("\r\nAuthorization: Bearer "));
  EXPECT_THAT(raw, testing::Not(HasSubstr("X-Client-ID")));
  const std::string hook = "VLIBPluginAction";
  EXPECT_THAT(bench.Steps({hook, "curl_easy_perform", "set account_host", "set identity_host", "set kivoIDSerial",
                           "set lu_auth_key", "VARNScheduleRemove", "ConfigManager::Save"}),
              ElementsAre(hook, "curl_easy_perform", "curl_easy_perform", "set account_host", "set identity_host",
                          "set kivoIDSerial", "set lu_auth_key", "curl_easy_perform", "VARNScheduleRemove",
                          "ConfigManager::Save", hook));
  EXPECT_THAT(bench.device.Logs(), Contains("Logged in Varnholt Account as [ann@example.com]"));
  EXPECT_EQ("https://account-test.kivo.example https://identity.kivo.example 1001",
            User().GetAccountHost() + " " + User().GetIdentityHost() + " " + User().GetUserId());
}

TEST(Service, WithoutATemplateThereIsNoService) {
  const Bench bench;
  const std::string content = ReadFile(kLoginConfig);
  WriteFile(kLoginConfig, "{");
  EXPECT_EQ("code 2: ", Result([] { return AccountPkceService(), ""; }).substr(0, 8));
  EXPECT_EQ(-1, VARNKIVOAccountLogout(false));
  EXPECT_EQ(KIVO_ERR_BAD_JSON, VARNKIVOErrGet());
  WriteFile(kLoginConfig, content);
}

TEST(AccountService, OnlyASynchronisationThatFailsDeletesTheRecord) {
  Bench bench;
  const varnkivo::AccountService service;
  for (const bool remote : {false, true}) {
    bench.SignIn(2 * 86400);
    bench.Answer(kQuery, "", 500);
    EXPECT_THAT(
        Result([&] { return remote ? service.GetAndSyncRemoteJsonAccount() : service.GetLocalJsonAccount(), ""; }),
        StartsWith("code 4:"));
    EXPECT_EQ(!remote, IsThere(kRecord));
  }
}

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
  EXPECT_THAT(bench.Steps({"VLIBCProcFork", "ConfigManager", "VARNLogSet1"}),
              ElementsAre("ConfigManager::Save", "VLIBCProcFork", "ConfigManager::Remove", "VARNLogSet1"));
  EXPECT_THAT(bench.device.Calls("VARNLogSet1("), ElementsAre("VARNLogSet1(2,1,329252866,,,,)"));
  EXPECT_THAT(bench.device.Logs(), Contains("Logged out Varnholt Account: ann@example.com"));
}

TEST(Logout, LocallyItAsksNobodyAndGoesOnWhateverFails) {
  Bench bench;
  LeaveTraces(bench);
  bench.device.FailNext("VLIBCProcFork");
  bench.device.FailNext("ConfigManager::Remove", 1, 0);
  EXPECT_EQ(0, VARNKIVOAccountLogout(false));
  EXPECT_EQ("Logged out Varnholt Account: ann@example.com", bench.device.Logs()[0]);
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
