// What each answer of the identity and the account host comes to, in all operations that ask for a token, a grant, a
// configuration, an auth key or a sign-out: its code and text, with no secret in them, and everything as it was.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/account_pulse_watch_service.h>
#include <varnkivo/package_pkce_client.h>
#include <varnkivo/varnkivo.h>

#include "pkce_bench.h"

using namespace pkcetest;
using kivosim::Fault;
using testing::StartsWith;
using varnkivo::AccountPkceService;

namespace {

struct Call {
  std::string name, path, lost, refused, unknown;  // how it tells of no answer, a status, a body
  std::function<std::string(Bench&)> run;
};
const Call kCalls[] = {
    {"renew", kTokenPath,
     "code 5: Failed to renew token, reqcode=", "code 14: Failed to renew token, refresh_token is expired or revoked, ",
     "code 5: Failed to parse renew token resp, ", [](Bench& bench) { return bench.Client()->GetAccessToken(); }},
    {"exchange", kTokenPath, "code 5: Failed to exchange token, reqcode=", "code 5: Failed to exchange token, ",
     "code 22: Failed to parse exchange authkey resp, ",
     [](Bench& bench) { return bench.Client()->ExchangeToken("code-0123456789", "verifier-0123456789", "r"), "done"; }},
    {"grant", kGrantPath, "code 5: Failed to grant by authkey, reqcode=", "code 5: Failed to grant by authkey, ",
     "code 5: Failed to parse grant by authkey resp, ", [](Bench&) { return AccountPkceService().GetAccessToken(); }},
    {"authkey", kAuthKeyPath, "code 5: Failed to exchange authkey, reqcode=", "code 5: Failed to exchange authkey, ",
     "code 22: Failed to parse exchange authkey resp, ",
     [](Bench& bench) { return AccountPkceService().Login(FinishedBrowserLogin(bench)), "done"; }},
    {"config", kConfigPath,
     "code 5: Failed to retrieve pacakge[photos], reqcode=", "code 5: Failed to retrieve pacakge[photos] pkce config, ",
     "code 5: Failed to parse retrieve pacakge[photos] pkce config resp, ",
     [](Bench&) { return varnkivo::PackagePkceClient("photos").GetAccessToken(); }},
    {"package", kPackageGrant, "code 5: Failed to grant pacakge[photos], reqcode=",
     "code 5: Failed to grant pacakge[photos], ", "code 5: Failed to parse grant pacakge[photos] resp, ",
     [](Bench&) { return varnkivo::PackagePkceClient("photos").GetAccessToken(); }},
    {"watch", kWatchGrant, "code 5: Failed to grant pulsewatch, reqcode=", "code 5: Failed to grant pulsewatch, ",
     "code 5: Failed to parse pulsewatch grant resp, ",
     [](Bench&) { return varnkivo::AccountPulseWatchService().Grant("c", "s", "r", "t"); }},
    {"logout", kLogoutPath,
     "code 5: Failed to logout: Failed to logout, reqcode=", "code 5: Failed to logout: Failed to logout, ",
     "code 2: Failed to logout: Failed to parse logout resp, ", [](Bench& bench) {
       const bool done = VARNKIVOAccountLogout(true) == 0;
       return done ? "done" : "code " + std::to_string(VARNKIVOErrGet()) + ": " + bench.device.LastLog();
     }}};

void Expect(const Call& call, const Fault& fault, const std::string& result) {
  SCOPED_TRACE(call.name + ": " + result);
  Bench bench;
  for (const char* cache : {kCache, kWatchCache}) unlink(cache);
  if (call.name != "authkey") bench.SignIn(0);
  if (call.name != "authkey" && call.name != "grant") bench.StoreTokens(call.name == "renew" ? 2 * kHour : 0);
  if (call.name == "watch") varnkivo::PackagePkceClient("pulsewatch").GetAccessToken();
  EXPECT_TRUE(VARNKIVOAccountRegisterCrond());
  const auto state = [&] {
    const std::string tokens =
        call.name == "authkey" ? "" : testing::PrintToString(TokenFiles()) + ReadFile(kTokenFile);
    return ReadFile(kRecord) + ReadFile(kCronJob) + tokens;  // a sign-in keeps the token that it had got before
  };
  const std::string before = state();
  for (const char* secret : {"verifier-012", "code-012345", "canary"}) bench.device.MustNotLog(secret);
  bench.cloud->QueueFault(call.path, fault);
  EXPECT_THAT(Result([&] { return call.run(bench); }), StartsWith(result));
  EXPECT_EQ(before, state());
  EXPECT_EQ(1u, bench.cloud.Requests(call.path).size());
  EXPECT_TRUE(call.name != "logout" || bench.device.Lines().back().line == 28);
  EXPECT_TRUE(result != "code 2" || bench.device.HasLog("Failed to parse json: "));
}

TEST(Answer, ThatIsNoneHasItsCodeAndTextWhoeverAsks) {
  for (const Call& call : kCalls) {
    Expect(call, Fault::ResetAfterRequest(), call.lost);
    Expect(call, Fault::Answer(400, R"({"access_token":"0123456789canary"})"),
           call.refused + R"(code=400, resp={"access_token":"0123456789..."})");
    Expect(call, Fault::Answer(200, "no"), "code 2");
    Expect(call, Fault::Answer(200, "[1]"), call.unknown + "code=200, resp=[1]");
  }
}

TEST(Answer, OfEachKindHasItsOwnRules) {
  const std::string set = R"({"access_token":"a%s","id_token":"i","refresh_token":"r","expires_in":60})";
  const auto token = [&](const char* more) { return std::string(set).replace(set.find("%s"), 2, more); };
  const struct {
    std::string calls;
    int status;
    std::string body, result;  // "U": it is unknown
  } rows[] = {
      {"renew", 200, R"({"access_token":"a","refresh_token":"0123456789canary"})",
       R"(code 22: Failed to parse renew token resp, code=200, resp={"access_token":"a...","refresh_token":"01)"},
      {"exchange", 200, R"({"access_token":"a","refresh_token":"r"})", "U"},
      {"renew exchange", 200, token("\\u0000b"), "code 22"},
      {"renew exchange", 200, token("\\r\\nX: 1"), "code 22"},
      {"renew", 400, "down", "code 2"},
      {"exchange logout config package watch grant authkey", 503, "down", ""},
      {"grant", 401, "{}", "code 14: Failed to auth on grant by authkey, code=401, resp={}"},
      {"grant package", 200, R"({"grant_code":""})", "code 5: Failed to exchange token, code=400, resp="},
      {"package", 200, R"({"grant_code":{}})", "code 5"},
      {"package watch", 200, "{}", "U"},
      {"authkey", 200, R"({"user_id":"1"})", "U"},
      {"authkey", 200, R"({"user_id":"1","auth_key":["k"]})", "code 5: "},
      {"logout", 200, R"({"code":"badauth"})", "code 14: Failed to logout: Failed to logout with success code"}};
  for (const auto& row : rows)
    for (const Call& call : kCalls) {
      if (row.calls.find(call.name) == std::string::npos) continue;
      const std::string resp = "code=" + std::to_string(row.status) + ", resp=" + row.body;
      Expect(call, Fault::Answer(row.status, row.body),
             row.result == "U"    ? call.unknown
             : row.result.empty() ? call.refused + resp
                                  : row.result);
    }
}

}  // namespace
