// The device's own sign-in: what it sends and does in which order, how it heals itself, and where it gives up.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/account_service.h>
#include <varnkivo/user.h>

#include "token_bench.h"

using namespace tokentest;
using kivosim::Fault;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using varnkivo::AccountPkceService;
using varnkivo::User;

namespace {

const std::string kGrant =
    std::string("POST /") + kGrantPath + " account.kivo.example client_id=kivo-device redirect_url=";
const std::string kToken = "POST /oauth2/token identity.kivo.example grant_type=";

std::string Token(const AccountPkceService& service) {
  return Result([&] { return service.GetAccessToken(), std::string("token"); });
}

TEST(Service, ATokenIsGrantedToTheAuthKeyWhereThereIsNone) {
  TokenBench bench;
  bench.SignIn(0);
  const AccountPkceService service;
  EXPECT_TRUE(service.HasToken());
  const auto sent = bench.cloud.Requests();
  ASSERT_EQ(2u, sent.size());
  EXPECT_THAT(
      sent[0].body,
      MatchesRegex("client_id=kivo-device&redirect_url=https%3A%2F%2Faccount.kivo.example%2Fdevice%2Flogin%2Fcallback"
                   "&state=1800000000&code_challenge=[A-Za-z0-9_-]{43}&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D"
                   "&scopes\\[\\]=openid&scopes\\[\\]=offline_access&scopes\\[\\]=profile&scopes\\[\\]=email"
                   "&scopes\\[\\]=device.sn%3A2040VKN000001&scopes\\[\\]=device.mac%3A02%3A00%3A5e%3A20%3A40%3A01"));
  EXPECT_THAT(sent[0].raw, HasSubstr("\r\nX-Client-ID: kivo-device\r\n"));
  EXPECT_THAT(sent[1].body,
              MatchesRegex("grant_type=authorization_code&client_id=kivo-device&redirect_uri=https%3A%2F%2F"
                           "account.kivo.example%2Fdevice%2Flogin%2Fcallback&code=[^&]+&code_verifier="
                           "[A-Za-z0-9_-]{43}"));
  EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  EXPECT_EQ("token", Token(service));
  EXPECT_EQ(2u, bench.cloud.Requests().size()) << "the token lasts";
}

TEST(Service, ARefusedRefreshTokenIsReplacedByAGrant) {
  TokenBench bench;
  bench.SignIn(0);
  bench.StoreTokens(2 * kHour);
  bench.cloud->RevokeTokens(kEmail);
  const AccountPkceService service;
  EXPECT_EQ("token", Token(service));
  EXPECT_THAT(Sent(bench.cloud), ElementsAre(StartsWith(kToken + "refresh_token "), StartsWith(kGrant),
                                             StartsWith(kToken + "authorization_code ")));
  EXPECT_THAT(bench.device.Logs(), testing::Contains("Rescue lum renew pkce token by authkey"));
  EXPECT_TRUE(IsThere(kRecord));
}

TEST(Service, AGrantThatASignOutHasOvertakenBringsNothingBack) {
  TokenBench bench;
  bench.SignIn(0);
  bench.cloud->SetHook([](const kivosim::Request& request) -> std::optional<kivosim::Response> {
    if (request.path == std::string("/") + kTokenPath) unlink(kRecord);
    return std::nullopt;
  });
  EXPECT_THAT(Token(AccountPkceService()), StartsWith("code 22: "));
  EXPECT_EQ(2u, bench.cloud.Requests().size());
  EXPECT_THAT(TokenFiles(), IsEmpty());
}

TEST(Service, ARescueThatFailsSignsTheDeviceOutIfTheAccountHostAgrees) {
  for (const bool agrees : {true, false}) {
    TokenBench bench;
    bench.SignIn(0);
    bench.StoreTokens(2 * kHour);
    bench.cloud->RevokeTokens(kEmail);
    bench.cloud->QueueFault(kGrantPath, Fault::Answer(401, "gone"));
    if (!agrees) bench.cloud->QueueFault(kLogoutPath, Fault::Answer(200, R"({"code":"badsys"})"));
    const AccountPkceService service;
    EXPECT_EQ(agrees ? "code 22: Failed to find an existed token file" : "code 6: Failed to logout with success code",
              Token(service));
    const auto sent = Sent(bench.cloud);
    ASSERT_EQ(3u, sent.size());
    EXPECT_EQ(std::string("POST /device/api/logout account.kivo.example serial_no=2040VKN000001 auth_key=") + kAuthKey,
              sent[2])
        << "no access token, which could lead here again";
    EXPECT_THAT(bench.device.Logs(), testing::Contains("Failed to rescue by authkey, force logout"));
    EXPECT_EQ(!agrees, IsThere(kRecord));
    EXPECT_EQ(!agrees, IsThere(kTokenFile));
    EXPECT_TRUE(!agrees || !service.HasToken());
  }
}

TEST(Service, OnlyARefusalLeadsToARescue) {
  TokenBench bench;
  bench.SignIn(0);
  bench.StoreTokens(2 * kHour);
  for (const auto& [status, body] : {std::pair(200, "[]"), {500, "down"}, {200, "{}"}}) {
    bench.cloud->QueueFault(kTokenPath, Fault::Answer(status, body));
    bench.cloud->ClearJournal();
    EXPECT_THAT(Token(AccountPkceService()), testing::Not("token"));
    EXPECT_EQ(1u, bench.cloud.Requests().size()) << body;
  }
  EXPECT_TRUE(IsThere(kRecord) && IsThere(kTokenFile));
}

TEST(Service, GrantAnswersHaveTheirCodes) {
  const struct {
    int status;
    std::string body, result;
  } rows[] = {{401, "{}", "code 14: Failed to auth on grant by authkey, code=401, resp={}"},
              {400, "x", "code 5: Failed to grant by authkey, code=400, resp=x"},
              {200, "[]", "code 5: Failed to parse grant by authkey resp, code=200, resp=[]"},
              {200, R"({"grant_code":""})", "code 5: Failed to exchange token, code=400, resp="}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.status) + " " + row.body);
    TokenBench bench;
    bench.SignIn(0);
    bench.cloud->QueueFault(kGrantPath, Fault::Answer(row.status, row.body));
    EXPECT_THAT(Token(AccountPkceService()), StartsWith(row.result));
    EXPECT_TRUE(IsThere(kRecord));
    EXPECT_THAT(TokenFiles(), IsEmpty());
  }
  TokenBench bench;
  bench.SignIn(0);
  bench.device.FailNext("varn_challenge_verifier_no_save");
  EXPECT_EQ("code 6: Failed to get code challenge & verifier", Token(AccountPkceService()));
}

/// A code as a browser would bring it back.
varnkivo::ParamPkceLogin FinishedBrowserLogin(const TokenBench& bench) {
  static const char kVerifier[] = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";  // the pair of RFC 7636, appendix B
  const Json::Value config = AccountPkceService().GetLoginPkceConfig();
  const std::string redirect = config["login_redirect_uri"].asString();
  return {
      "",
      bench.cloud->IssueCode(kEmail, "kivo-device", kSerial, redirect, "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"),
      kVerifier, redirect};
}

TEST(Service, LoginDoesItsStepsInOrder) {
  TokenBench bench;
  WriteRecord("kivoIDSerial=\"7\"\nlu_auth_key=\"old\"\nlast_query_time=\"0\"\n");
  const AccountPkceService service("https://account-test.kivo.example", "");
  const Json::Value account = service.Login(FinishedBrowserLogin(bench));
  EXPECT_EQ(kEmail, account["email"].asString());
  EXPECT_THAT(
      Sent(bench.cloud),
      ElementsAre(StartsWith(kToken + "authorization_code client_id=kivo-device redirect_uri=https://account.kivo."
                                      "example/device/login/callback code="),
                  "POST /oauth2/api/v1/device/core/authkey/exchange account-test.kivo.example",
                  StartsWith("POST /device/api/user/query account-test.kivo.example ")));
  const std::string raw = bench.cloud.Requests()[1].raw;
  EXPECT_THAT(raw, HasSubstr("\r\nAuthorization: Bearer "));
  EXPECT_THAT(raw, testing::Not(HasSubstr("X-Client-ID")));
  EXPECT_THAT(raw, testing::EndsWith("\r\n\r\n")) << "no body";
  const std::string hook = "VLIBPluginAction";
  EXPECT_THAT(bench.Steps({hook, "curl_easy_perform", "set account_host", "set identity_host", "set kivoIDSerial",
                           "set lu_auth_key", "VARNScheduleRemove", "ConfigManager::Save"}),
              ElementsAre(hook, "curl_easy_perform", "curl_easy_perform", "set account_host", "set identity_host",
                          "set kivoIDSerial", "set lu_auth_key", "curl_easy_perform", "VARNScheduleRemove",
                          "ConfigManager::Save", hook));
  EXPECT_THAT(bench.device.Logs(), testing::Contains("Logged in Varnholt Account as [ann@example.com]"));
  EXPECT_EQ("https://account-test.kivo.example https://identity.kivo.example 1001",
            User().GetAccountHost() + " " + User().GetIdentityHost() + " " + User().GetUserId());
}

TEST(Service, AuthKeyAnswersHaveTheirCodesAndStopTheLogin) {
  const struct {
    int status;
    std::string body, result;
  } rows[] = {
      {401, "{}", "code 5: Failed to exchange authkey, code=401, resp={}"},
      {200, R"({"user_id":"1"})", R"(code 22: Failed to parse exchange authkey resp, code=200, resp={"user_id":"1"})"},
      {200, R"({"user_id":"1","auth_key":["k"]})", "code 5: "}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    TokenBench bench;
    bench.cloud->QueueFault("oauth2/api/v1/device/core/authkey/exchange", Fault::Answer(row.status, row.body));
    EXPECT_THAT(Result([&] { return AccountPkceService().Login(FinishedBrowserLogin(bench)), ""; }),
                StartsWith(row.result));
    EXPECT_FALSE(IsThere(kRecord));
    EXPECT_TRUE(IsThere(kTokenFile)) << "what was done before stays";
    EXPECT_EQ(1u, bench.Steps({"VLIBPluginAction"}).size());
  }
}

TEST(Service, WithoutATemplateThereIsNoService) {
  TokenBench bench;
  const std::string content = ReadFile(kLoginConfig);
  WriteFile(kLoginConfig, "{");
  EXPECT_EQ("code 2: ", Result([] { return AccountPkceService(), ""; }).substr(0, 8));
  VARNKIVOErrSet(0);
  EXPECT_EQ(-1, VARNKIVOAccountLogout(false));
  EXPECT_EQ(KIVO_ERR_BAD_JSON, VARNKIVOErrGet());
  WriteFile(kLoginConfig, content);
  EXPECT_EQ("kivo-device-register", AccountPkceService().GetRegisterPkceConfig()["client_id"].asString());
}

TEST(AccountService, AFailedSynchronisationDeletesTheRecordAndAFailedReadingDoesNot) {
  TokenBench bench;
  const varnkivo::AccountService service;
  for (const bool remote : {false, true}) {
    bench.SignIn(2 * 86400);
    bench.cloud->QueueFault(kQuery, Fault::Answer(500, ""));
    EXPECT_THAT(
        Result([&] { return remote ? service.GetAndSyncRemoteJsonAccount() : service.GetLocalJsonAccount(), ""; }),
        StartsWith("code 4:"));
    EXPECT_EQ(!remote, IsThere(kRecord));
  }
  EXPECT_THAT(Result([&] { return service.GetAndSyncRemoteJsonAccount(), ""; }), StartsWith("code 3:"));
  EXPECT_TRUE(bench.device.HasLog(std::string("Failed to unlink ") + kRecord));
}

TEST(AccountService, LoginThrowsTheCodeAndTheJobFollowsTheSwitch) {
  TokenBench bench;
  const varnkivo::AccountService service;
  EXPECT_THAT(Result([&] { return service.Login(kEmail, "wrong"), ""; }), StartsWith("code 14:"));
  EXPECT_EQ("account_service VARNKIVOAccountLogin failed, email=ann@example.com", bench.device.LastLine());
  EXPECT_EQ("good", service.Login(kEmail, kPassword)["code"].asString());
  EXPECT_TRUE(IsThere(kCronJob));
  WriteFile(kDeviceConf, "kivo_disable_report=\"yes\"\n");
  service.SetReportCrontab();
  EXPECT_FALSE(IsThere(kCronJob));
}

}  // namespace
