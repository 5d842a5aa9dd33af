// What the account and identity hosts answer, that they let no malformed request pass, and the life of tokens:
// rotation, revocation, and that of many simultaneous uses of one a single one succeeds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "sim/identity_client.h"
#include "sim/simulator.h"
#include "sim/token_store.h"

namespace {

using namespace std::chrono_literals;
using kivosim::Account;
using kivosim::Simulator;
using kivosim::TokenSet;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

const std::string kGrantUrl = kAccount + "/migration/api/v1/device/core/authorization_code/grant";
const std::string kLogoutUrl = kAccount + "/device/api/logout";
const std::string kLoginUrl = kAccount + "/device/api/password_login";
const std::string kLogin =
    "lu_sn=2130KVN004211&lu_token=430450fef2cf32aad9ad39f451c755a5"
    "&type=acnt_pw_apikey&email=ann%40example.com&passwd=correct%20horse"
    "&serial_no=2130KVN004211&api_key=k1&mac=02%3A00%3A5e%3A00%3A00%3A01";
const std::string kLogoutForm = "serial_no=" + kSerial + "&auth_key=ak-1";

std::string GrantForm(const std::string& key) {
  return "client_id=kivo-device&redirect_url=" + kRedirect + "&state=1790000000&code_challenge=" + kChallenge +
         "&auth_key=" + key + "&scopes[]=openid&scopes[]=device.sn%3A" + kSerial;
}

class SimHosts : public testing::Test {
 protected:
  void SetUp() override {
    Account ann{"ann@example.com", "correct horse", "1001"}, bob{"bob@example.com", "pw", "1002"};
    ann.authKeys[kSerial] = "ak-1";
    cloud.AddAccount(ann);
    cloud.AddAccount(bob);
    cloud.Start();
  }
  /// The code of the answer, which must come with the status that belongs to it.
  std::string Code(const std::string& body) {
    const Exchange exchange = Post(kLoginUrl, body);
    const bool good = exchange.body.find("\"code\":\"good\"") != std::string::npos;
    EXPECT_EQ(good ? 200 : 400, exchange.status) << exchange.body;
    const std::size_t start = exchange.body.find("\"code\":\"") + 8;
    return exchange.body.substr(start, exchange.body.find('"', start) - start);
  }
  TokenSet Issue(const std::string& user = "1001") { return cloud.IssueTokens(user, "kivo-device", kSerial); }
  Simulator cloud;
};

TEST_F(SimHosts, PasswordLoginGivesIdAndKeyAndIsJournalledByteForByte) {
  const Exchange exchange = Post(kLoginUrl, kLogin, {{"X-Test: a  b", "User-Agent:", "Accept:"}});
  EXPECT_EQ("{\"auth_key\":\"ak-1\",\"code\":\"good\",\"email\":\"ann@example.com\",\"id\":\"1001\"}", exchange.body);
  EXPECT_EQ("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 71\r\n\r\n", exchange.head);
  const auto journal = cloud.Journal();
  ASSERT_EQ(1u, journal.size());
  EXPECT_EQ(
      "POST /device/api/password_login HTTP/1.1\r\nHost: account.kivo.example\r\nX-Test: a  b\r\n"
      "Content-Length: " +
          std::to_string(kLogin.size()) + "\r\nContent-Type: application/x-www-form-urlencoded\r\n\r\n" + kLogin,
      journal[0].request.raw);
  EXPECT_EQ("account.kivo.example", journal[0].sni);
}

TEST_F(SimHosts, AFaultyRequestIsRefusedAndComplainedOf) {
  const struct {
    std::string from, to;
    const char* complaint;
  } rows[] = {
      {"type=acnt_pw_apikey&email=ann%40example.com", "email=ann%40example.com&type=acnt_pw_apikey",
       "expected \"type\", found \"email\""},
      {"&mac=", "&kivoID=1001&mac=", "expected \"mac\", found \"kivoID\""},
      {"lu_sn=2130KVN004211", "lu_sn=2130KVN004212", "\"serial_no\" is not \"lu_sn\""},
      {"430450fe", "430450ff", "\"lu_token\" is wrong"},
      {"&type=", "&kivoID=1001&type=", "\"lu_token\" is wrong"},  // an id that the token does not cover
      {"acnt_pw_apikey", "acnt_pw", "\"type\" is \"acnt_pw\""},
      {"api_key=k1", "api_key=", "\"api_key\" is empty"},
      {"correct%20horse", "correct+horse", "unescaped byte in \"correct+horse\""},
      {"%3A01", "%3a01", "bad escape in \"02%3A00%3A5e%3A00%3A00%3a01\""},
      {"%3A01", "%3A0%31", "needless escape in \"02%3A00%3A5e%3A00%3A00%3A0%31\""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.complaint);
    cloud.ClearJournal();
    const bool wrongToken = std::string(row.complaint).find("lu_token\" is") != std::string::npos;
    EXPECT_EQ(wrongToken ? "badauth" : "badparam", Code(Replaced(kLogin, row.from, row.to)));
    EXPECT_THAT(cloud.Complaints(), ElementsAre(std::string("/device/api/password_login: ") + row.complaint));
  }
  const CurlOptions put = {{}, 20000, CurlOptions().caFile, 0, "PUT"};
  const struct {
    std::string url;
    CurlOptions options;
    long status;
    const char* complaint;
  } envelopes[] = {{kLoginUrl, put, 400, "PUT"},
                   {kLoginUrl, {{"Content-Type: text/plain"}}, 400, "content type"},
                   {kLoginUrl + "?a=1", {}, 400, "query text in the URL"},
                   {kAccount + "/device/api/no_such", {}, 404, "no such path"},
                   {kAccount + "/", {{"Host: evil.example"}}, 404, "no such host"},
                   {kAccount + "/", {{"Host: account-test.kivo.example"}}, 404, "handshake was for"}};
  for (const auto& row : envelopes) {
    cloud.ClearJournal();
    EXPECT_EQ(row.status, Post(row.url, kLogin, row.options).status) << row.complaint;
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
}

TEST_F(SimHosts, RefusalsOfASignInCarryTheirCodeAndNoComplaint) {
  cloud.ChangeAccount("bob@example.com", [](Account& bob) { bob.refusal = "account_unverified"; });
  EXPECT_EQ("account_not_found", Code(Replaced(kLogin, "ann%40", "eve%40")));
  EXPECT_EQ("badauth", Code(Replaced(kLogin, "%20horse", "%20Horse")));
  const std::string bob = Replaced(Replaced(kLogin, "ann%40", "bob%40"), "correct%20horse", "pw");
  EXPECT_EQ("account_unverified", Code(bob));
  cloud.RefuseMachine("2130KVN004211");
  EXPECT_EQ("invalid_machine", Code(kLogin));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimHosts, EachUseReplacesTheTokensAndAnOldOneEndsThemAll) {
  const TokenSet first = Issue(), other = Issue();
  std::string present = first.refreshToken, access;
  for (std::uint64_t generation = 2; generation <= 4; ++generation) {
    const Exchange next = Refresh(present);
    ASSERT_EQ(200, next.status);
    EXPECT_NE(present, Member(next, "refresh_token"));
    EXPECT_NE("", Member(next, "id_token"));
    present = Member(next, "refresh_token");
    access = Member(next, "access_token");
    EXPECT_EQ(generation, cloud.TokenFamilies()[0].generation);
  }
  cloud.AddOAuthClient({"other", {}});
  EXPECT_THAT(Post(kTokenUrl, RefreshForm(present, "other"), ClientHeader("other")).body, HasSubstr("invalid_grant"));
  EXPECT_EQ(200, ExchangeAuthKey(access).status);  // which did no harm
  EXPECT_THAT(Refresh(first.refreshToken).body, HasSubstr("invalid_grant"));
  EXPECT_THAT(Refresh(present).body, HasSubstr("invalid_grant"));
  EXPECT_EQ(401, ExchangeAuthKey(access).status);
  EXPECT_EQ(200, Refresh(other.refreshToken).status);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimHosts, ASignInGivesACodeAndTheCodeGivesTokens) {
  EXPECT_EQ(200, Get(kAuthUrl).status);
  const Exchange signedIn = Post(kAuthUrl, kAnn);
  EXPECT_EQ(303, signedIn.status);
  EXPECT_THAT(Location(signedIn), MatchesRegex("https://account\\.kivo\\.example/device/login/callback\\?"
                                               "code=code-[0-9a-f]+&state=a%2fb\\+c%20~%7E"));
  const Exchange tokens = ExchangeCode(NewCode());
  EXPECT_EQ(200, tokens.status);
  EXPECT_THAT(tokens.head, HasSubstr("Cache-Control: no-store"));
  EXPECT_EQ("3600", Member(tokens, "expires_in"));
  EXPECT_EQ("openid offline_access device.sn:" + kSerial, Member(tokens, "scope"));
  EXPECT_EQ("1001", Member(ExchangeAuthKey(Member(tokens, "access_token")), "user_id"));
  const auto families = cloud.TokenFamilies();
  ASSERT_EQ(1u, families.size());
  EXPECT_EQ(kSerial, families[0].serial);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimHosts, FaultyAuthorizationRequestsGoBackToTheClientOnlyWhereThatIsSafe) {
  const struct {
    const char *from, *to, *error, *complaint;  // error "": answered 400, nothing sent back
  } rows[] = {
      {"client_id=kivo-device", "client_id=eve", "", "unknown client \"eve\""},
      {"account.kivo.example%2Fdevice", "evil.example%2Fdevice", "", "is no redirect_uri of kivo-device"},
      {"response_type=code", "response_type=token", "unsupported_response_type", "\"token\""},
      {"method=S256", "method=plain", "invalid_request", "\"code_challenge_method\" is \"plain\""},
      {"code_challenge=E9", "code_challenge=E%3D", "invalid_request", "no S256 challenge"},
      {"&state=a%2fb+c%20~%7E", "", "invalid_request", "\"state\" is missing"},
      {"scope=openid", "scope=openidx", "invalid_scope", "without \"openid\""},
      {"&audience", "&prompt=x&audience", "invalid_request", "unexpected \"prompt\""},
  };
  for (const auto& row : rows) {
    for (const bool post : {false, true}) {
      SCOPED_TRACE(row.to + std::string(post ? " POST" : " GET"));
      cloud.ClearJournal();
      const std::string url = Replaced(kAuthUrl, row.from, row.to);
      const Exchange exchange = post ? Post(url, kAnn) : Get(url);
      EXPECT_EQ(*row.error ? 303 : 400, exchange.status);
      EXPECT_THAT(Location(exchange), *row.error ? HasSubstr("/device/login/callback?error=" + std::string(row.error))
                                                 : testing::Matcher<std::string>(""));
      EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
    }
  }
}

TEST_F(SimHosts, OnlyTheRightPasswordGivesACode) {
  const struct {
    const char* form;
    long status;
    const char* location;
  } rows[] = {{"email=ann%40example.com&password=wrong", 401, ""},
              {"email=eve%40example.com&password=correct+horse", 401, ""},
              {"email=ann%40example.com", 400, ""},
              {"decision=deny", 303, "?error=access_denied&state=a%2fb+c%20~%7E"}};
  for (const auto& row : rows) {
    const Exchange exchange = Post(kAuthUrl, row.form);
    EXPECT_EQ(row.status, exchange.status) << row.form;
    EXPECT_THAT(Location(exchange), HasSubstr(row.location));
    EXPECT_THAT(Location(exchange), testing::Not(HasSubstr("code=")));
  }
  cloud.ChangeAccount("1001", [](Account& ann) { ann.refusal = "account_unverified"; });
  EXPECT_THAT(Location(Post(kAuthUrl, kAnn)), HasSubstr("?error=access_denied&error_description=account_unverified"));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimHosts, ACodeIsBoundToWhatItWasAskedForWith) {
  cloud.AddOAuthClient({"other", {"https://account.kivo.example/device/login/callback"}});
  const std::string code = NewCode(), good = CodeForm(code);
  const struct {
    std::string from, to, client, description;
  } rows[] = {{"client_id=kivo-device", "client_id=other", "other", "another client"},
              {"account.kivo", "account-test.kivo", "kivo-device", "another redirect_uri"},
              {"wW1gFWFOEjXk", "wW1gFWFOEjXK", "kivo-device", "does not match the challenge"},
              {kVerifier, kChallenge, "kivo-device", "does not match the challenge"},
              {"code=code-", "code=code-0", "kivo-device", "unknown code"}};
  for (const auto& row : rows) {
    const Exchange exchange = Post(kTokenUrl, Replaced(good, row.from, row.to), ClientHeader(row.client));
    EXPECT_EQ(400, exchange.status) << row.to;
    EXPECT_EQ("invalid_grant", Member(exchange, "error"));
    EXPECT_THAT(Member(exchange, "error_description"), HasSubstr(row.description));
  }
  EXPECT_EQ(200, ExchangeCode(code).status);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimHosts, ACodeLivesTenMinutesAndItsSecondUseTakesBackTheFirst) {
  const std::string old = NewCode();
  cloud.PassTime(590s);
  const std::string code = NewCode();
  cloud.PassTime(11s);
  EXPECT_EQ("the code has expired", Member(ExchangeCode(old), "error_description"));
  const Exchange first = ExchangeCode(code);
  ASSERT_EQ(200, first.status);
  EXPECT_EQ("invalid_grant", Member(ExchangeCode(code), "error"));
  EXPECT_TRUE(cloud.TokenFamilies().at(0).revoked);
  EXPECT_EQ(401, ExchangeAuthKey(Member(first, "access_token")).status);
  EXPECT_EQ("invalid_grant", Member(Refresh(Member(first, "refresh_token")), "error"));
}

TEST_F(SimHosts, FaultyTokenRequestsAreRefusedAndComplainedOf) {
  const std::string code = CodeForm(NewCode());
  const struct {
    std::string form;
    CurlOptions options;
    const char *error, *complaint;
  } rows[] = {
      {code, {}, "invalid_request", "no header X-Client-ID"},
      {code, ClientHeader("other"), "invalid_request", "header X-Client-ID is \"other\""},
      {Replaced(code, "kivo-device", "eve"), ClientHeader("eve"), "invalid_client", "unknown client"},
      {code + "&scope=openid", ClientHeader(), "invalid_request", "unexpected \"scope\""},
      {"client_id=kivo-device&" + Replaced(code, "&client_id=kivo-device", ""), ClientHeader(), "invalid_request",
       "expected \"grant_type\""},
      {Replaced(code, "&code_verifier=" + kVerifier, ""), ClientHeader(), "invalid_request", "found the end"},
      {Replaced(code, kVerifier, kVerifier.substr(1)), ClientHeader(), "invalid_request", "43 to 128"},
      {"grant_type=password&username=a", ClientHeader(), "unsupported_grant_type", "\"grant_type\" is \"password\""},
      {code, {{"X-Client-ID: kivo-device"}, 20000, CurlOptions().caFile, 0, "PUT"}, "invalid_request", "method is PUT"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.complaint);
    cloud.ClearJournal();
    const Exchange exchange = Post(kTokenUrl, row.form, row.options);
    EXPECT_EQ(400, exchange.status);
    EXPECT_EQ(row.error, Member(exchange, "error"));
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
  EXPECT_EQ(200, Post(kTokenUrl, code, ClientHeader()).status);  // none of them used the code up
}

/// The simulator serves on one thread, so the store has to be raced directly.
TEST(SimTokenStore, ACodeAndATokenAreUsedUpOnceByAnyNumberOfThreads) {
  constexpr std::size_t kCount = 16000;
  kivosim::TokenStore store;
  std::vector<std::string> codes, tokens;
  for (std::size_t i = 0; i < kCount; ++i) {
    codes.push_back(store.IssueCode({{"1", "kivo-device", "", "openid"}, "uri", kChallenge}));
    tokens.push_back(store.Issue({"1", "kivo-device", "", "openid"}, 0s).refreshToken);
  }
  std::vector<std::atomic<int>> codeUses(kCount), tokenUses(kCount);
  std::atomic<int> ready{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      for (++ready; ready < 8;) std::this_thread::yield();
      for (std::size_t at = 0; at < kCount; ++at) {
        if (store.Refresh(tokens[at], "kivo-device").refusal.empty()) ++tokenUses[at];
        if (store.ExchangeCode({"kivo-device", "uri", codes[at], kVerifier}).refusal.empty()) ++codeUses[at];
      }
    });
  for (std::thread& thread : threads) thread.join();
  for (std::size_t at = 0; at < kCount; ++at) {
    ASSERT_EQ(1, codeUses[at]) << at;
    ASSERT_EQ(1, tokenUses[at]) << at;
  }
  for (const kivosim::TokenFamily& family : store.Families()) ASSERT_TRUE(family.revoked);
}

TEST_F(SimHosts, SigningOutTakesTheKeyAndTheTokensOfTheDevice) {
  const TokenSet here = Issue(), elsewhere = cloud.IssueTokens("1001", "kivo-device", "OTHER"), bob = Issue("1002");
  const auto code = [](const std::string& form) { return Member(Post(kLogoutUrl, form, ClientHeader()), "code"); };
  EXPECT_EQ("badauth", code(Replaced(kLogoutForm, "ak-1", "ak-2")));
  EXPECT_EQ("badauth", code(Replaced(kLogoutForm, kSerial, "OTHER")));
  for (const std::string& token : {bob.accessToken, std::string("at-0")})
    EXPECT_EQ("badauth", code(kLogoutForm + "&access_token=" + token));
  EXPECT_EQ(200, ExchangeAuthKey(here.accessToken).status);
  EXPECT_EQ("good", code(kLogoutForm + "&access_token=" + here.accessToken));
  EXPECT_THAT(cloud.FindAccount("1001")->authKeys, IsEmpty());
  EXPECT_EQ(400, Refresh(here.refreshToken).status);
  EXPECT_EQ(200, Refresh(elsewhere.refreshToken).status);
  EXPECT_EQ(200, Refresh(bob.refreshToken).status);
  EXPECT_EQ("badauth", code(kLogoutForm));
}

TEST_F(SimHosts, FaultyCallsOfTheAccountHostAreComplainedOf) {
  const std::string exchange = kAccount + "/oauth2/api/v1/device/core/authkey/exchange", grant = GrantForm("ak-1");
  const CurlOptions bearer = {{"Authorization: Bearer " + Issue().accessToken}};
  const struct {
    std::string url, form;
    CurlOptions options;
    const char* complaint;
  } rows[] = {{exchange, "", {}, "Authorization must be there once"},
              {exchange, "", {{"Authorization: Basic x"}}, "no bearer token"},
              {exchange, "a=1", bearer, "there is a body"},
              {exchange + "?a=1", "", bearer, "query text"},
              {kGrantUrl, grant, ClientHeader("other"), "header X-Client-ID is \"other\""},
              {kGrantUrl, Replaced(grant, "redirect_url", "redirect_uri"), ClientHeader(), "expected \"redirect_url\""},
              {kGrantUrl, Replaced(grant, "login", "logout"), ClientHeader(), "is no redirect URI"},
              {kGrantUrl, Replaced(grant, "challenge=E", "challenge="), ClientHeader(), "43 characters"},
              {kGrantUrl, Replaced(grant, kSerial, "OTHER"), ClientHeader(), "the scope names device \"OTHER\""},
              {kLogoutUrl, kLogoutForm, {}, "no header X-Client-ID"},
              {kLogoutUrl, kLogoutForm, ClientHeader("eve"), "unknown client"},
              {kLogoutUrl, kLogoutForm + "&x=1", ClientHeader(), "unexpected \"x\""}};
  for (const auto& row : rows) {
    cloud.ClearJournal();
    const Exchange answer = Post(row.url, row.form, row.options);
    EXPECT_TRUE(row.url == kLogoutUrl ? Member(answer, "code") == "badparam" : answer.status == 400) << row.complaint;
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
}

TEST_F(SimHosts, WhatIsDownStaysDownUntilItIsBroughtBack) {
  const TokenSet set = Issue();
  for (const char* what : {"identity", "identity.kivo.example", "oauth2/token", "*"}) {
    SCOPED_TRACE(what);
    cloud.TakeDown(what);
    cloud.ClearFaults();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(503, Refresh(set.refreshToken).status);
    EXPECT_EQ(*what == 'o' ? 200 : 503, Get(kIdentity + "/.well-known/jwks.json").status);
    EXPECT_EQ(*what == '*' ? 503 : 401, ExchangeAuthKey("at-0").status);
    cloud.BringBack(what);
  }
  EXPECT_EQ(200, Refresh(set.refreshToken).status);  // nothing had used the token up
  EXPECT_THROW(cloud.TakeDown("identty"), std::runtime_error);
}

}  // namespace
