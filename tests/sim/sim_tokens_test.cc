// Tokens over their life: rotation, revocation, expiry, the account host's side of them, the switches of the interface,
// and that of many simultaneous uses of a refresh token one succeeds.
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
using kivosim::Fault;
using kivosim::Simulator;
using kivosim::TokenSet;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::string kGrantUrl = kAccount + "/migration/api/v1/device/core/authorization_code/grant";
const std::string kLogoutUrl = kAccount + "/device/api/logout";

std::string GrantForm(const std::string& key) {
  return "client_id=kivo-device&redirect_url=" + kRedirect + "&state=1790000000&code_challenge=" + kChallenge +
         "&auth_key=" + key + "&scopes[]=openid&scopes[]=device.sn%3A" + kSerial;
}

class SimTokens : public testing::Test {
 protected:
  void SetUp() override {
    Account ann{"ann@example.com", "correct horse", "1001"}, bob{"bob@example.com", "pw", "1002"};
    ann.authKeys[kSerial] = "ak-1";
    cloud.AddAccount(ann);
    cloud.AddAccount(bob);
    cloud.Start();
  }
  TokenSet Issue(const std::string& user = "1001") { return cloud.IssueTokens(user, "kivo-device", kSerial); }
  Simulator cloud;
};

TEST_F(SimTokens, EachUseReplacesTheTokensAndAnOldOneEndsThemAll) {
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

TEST_F(SimTokens, OfFiftySimultaneousUsesOneSucceeds) {
  const TokenSet set = Issue();
  std::atomic<int> granted{0}, refused{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 50; ++i)
    threads.emplace_back([&] {
      const Exchange exchange = Refresh(set.refreshToken);
      if (exchange.status == 200) ++granted;
      if (exchange.status == 400 && Member(exchange, "error") == "invalid_grant") ++refused;
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(1, granted);
  EXPECT_EQ(49, refused);
  EXPECT_TRUE(cloud.TokenFamilies().at(0).revoked);
  EXPECT_EQ(2u, cloud.TokenFamilies()[0].generation);
  EXPECT_EQ(1u, cloud.TokenRequests().at("refresh_token").granted);
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

TEST_F(SimTokens, AccessTokensExpireByTimeOrOnDemand) {
  cloud.SetTokenLifetime(100s);
  cloud.SetTokenLifetime(300s, "kivo-device-register");
  const TokenSet set = Issue(), old = cloud.IssueTokens("1001", "kivo-device", kSerial, 101s),
                 long_ = cloud.IssueTokens("1001", "kivo-device-register", kSerial);
  EXPECT_EQ("100", Member(Refresh(Issue().refreshToken), "expires_in"));
  EXPECT_EQ(300, long_.expiresIn);
  EXPECT_EQ(401, ExchangeAuthKey(old.accessToken).status);
  EXPECT_EQ(200, ExchangeAuthKey(set.accessToken).status);
  cloud.PassTime(101s);
  EXPECT_EQ(401, ExchangeAuthKey(set.accessToken).status);
  EXPECT_EQ(200, ExchangeAuthKey(long_.accessToken).status);
  cloud.ExpireAccessTokens("kivo-device");
  EXPECT_EQ(200, ExchangeAuthKey(long_.accessToken).status);
  cloud.ExpireAccessTokens();
  EXPECT_EQ(401, ExchangeAuthKey(long_.accessToken).status);
  const Exchange next = Refresh(set.refreshToken);  // which does not expire
  EXPECT_EQ(200, ExchangeAuthKey(Member(next, "access_token")).status);
}

TEST_F(SimTokens, AnIssuedSetIsWhatATokenFileHolds) {
  const TokenSet set = cloud.IssueTokens("ann@example.com", "kivo-device", kSerial, 50s);
  const Exchange file{0, 200, "", set.fileText};
  for (const char* name : {"access_token", "id_token", "refresh_token", "token_type", "scope", "expires_in"})
    EXPECT_NE("", Member(file, name)) << name;
  EXPECT_EQ(std::to_string(set.createdAt), Member(file, "created_at"));
  EXPECT_LE(std::abs(time(nullptr) - 50 - set.createdAt), 5);
  EXPECT_THROW(cloud.IssueTokens("nobody"), std::runtime_error);
  EXPECT_THROW(cloud.IssueTokens("1001", "nobody"), std::runtime_error);
}

TEST_F(SimTokens, RevocationReachesTheFamiliesItNames) {
  const TokenSet ann = Issue(), annToo = cloud.IssueTokens("1001", "kivo-device-register", kSerial),
                 bob = Issue("1002");
  const auto good = [&](const TokenSet& set) { return ExchangeAuthKey(set.accessToken).status == 200; };
  EXPECT_TRUE(cloud.RevokeTokens("ann@example.com", "kivo-device"));
  EXPECT_FALSE(good(ann));
  EXPECT_TRUE(good(annToo));
  EXPECT_TRUE(cloud.RevokeTokens("1001"));
  EXPECT_FALSE(good(annToo));
  EXPECT_TRUE(good(bob));
  EXPECT_TRUE(cloud.RevokeFamily(3));
  EXPECT_FALSE(cloud.RevokeFamily(3));
  EXPECT_FALSE(good(bob));
  EXPECT_FALSE(cloud.RevokeTokens("nobody"));
}

TEST_F(SimTokens, TheAuthKeyExchangeWantsABearerTokenAndNothingElse) {
  const std::string url = kAccount + "/oauth2/api/v1/device/core/authkey/exchange";
  const TokenSet set = Issue(), without = cloud.IssueTokens("1001");
  const std::string bearer = "Authorization: Bearer " + set.accessToken;
  EXPECT_EQ("{\"auth_key\":\"ak-1\",\"user_id\":\"1001\"}", Post(url, "", {{bearer}}).body);
  EXPECT_EQ(401, ExchangeAuthKey("at-0").status);
  EXPECT_EQ(401, ExchangeAuthKey(set.refreshToken).status);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
  const struct {
    std::string url, body;
    std::vector<std::string> headers;
    const char* complaint;
  } rows[] = {{url, "", {}, "Authorization must be there once"},
              {url, "", {bearer, bearer}, "Authorization must be there once"},
              {url, "", {Replaced(bearer, "Bearer", "Basic")}, "no bearer token"},
              {url, "", {bearer, "X-Client-ID: kivo-device"}, "X-Client-ID must not be there"},
              {url, "a=1", {bearer}, "there is a body"},
              {url + "?a=1", "", {bearer}, "query text"},
              {url, "", {"Authorization: Bearer " + without.accessToken}, "scope names no device"}};
  for (const auto& row : rows) {
    cloud.ClearJournal();
    EXPECT_EQ(400, Post(row.url, row.body, {row.headers}).status) << row.complaint;
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
}

TEST_F(SimTokens, AnAuthKeyGrantsACodeUntilItIsRevoked) {
  const Exchange grant = Post(kGrantUrl, GrantForm("ak-1"), ClientHeader());
  EXPECT_EQ(200, grant.status);
  const Exchange tokens = ExchangeCode(Member(grant, "grant_code"));
  EXPECT_EQ("openid device.sn:" + kSerial, Member(tokens, "scope"));
  EXPECT_EQ("ak-1", Member(ExchangeAuthKey(Member(tokens, "access_token")), "auth_key"));
  EXPECT_EQ(401, Post(kGrantUrl, GrantForm("ak-2"), ClientHeader()).status);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
  const std::string form = GrantForm("ak-1");
  const struct {
    std::string form, client;
    const char* complaint;
  } rows[] = {{form, "other", "header X-Client-ID is \"other\""},
              {Replaced(form, "redirect_url", "redirect_uri"), "kivo-device", "expected \"redirect_url\""},
              {Replaced(form, "login", "logout"), "kivo-device", "is no redirect URI"},
              {Replaced(form, "client_id=kivo-device", "client_id=eve"), "eve", "unknown client"},
              {Replaced(form, "code_challenge=E", "code_challenge="), "kivo-device", "43 characters"},
              {Replaced(form, kSerial, "OTHER"), "kivo-device", "the scope names device \"OTHER\""},
              {Replaced(form, "scopes[]=openid", "scopes[]="), "kivo-device", "\"scopes[]\" is empty"},
              {form.substr(0, form.find("&scopes")), "kivo-device", "expected \"scopes[]\""},
              {form + "&x=1", "kivo-device", "unexpected \"x\""}};
  for (const auto& row : rows) {
    cloud.ClearJournal();
    EXPECT_EQ(400, Post(kGrantUrl, row.form, ClientHeader(row.client)).status) << row.complaint;
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
  cloud.Revoke("1001");
  EXPECT_EQ(401, Post(kGrantUrl, form, ClientHeader()).status);
}

TEST_F(SimTokens, SigningOutTakesTheKeyAndTheTokensOfTheDevice) {
  const TokenSet here = Issue(), elsewhere = cloud.IssueTokens("1001", "kivo-device", "OTHER"), bob = Issue("1002");
  const std::string form = "serial_no=" + kSerial + "&auth_key=ak-1", badauth = "{\"code\":\"badauth\"}";
  const struct {
    std::string form, answer;
    CurlOptions options;
    const char* complaint;
  } rows[] = {{Replaced(form, "ak-1", "ak-2"), badauth, ClientHeader(), ""},
              {Replaced(form, kSerial, "OTHER"), badauth, ClientHeader(), ""},
              {form + "&access_token=" + bob.accessToken, badauth, ClientHeader(), ""},
              {form + "&access_token=at-0", badauth, ClientHeader(), ""},
              {form, "{\"code\":\"badparam\"}", {}, "no header X-Client-ID"},
              {form, "{\"code\":\"badparam\"}", ClientHeader("eve"), "unknown client"},
              {form, "{\"code\":\"badparam\"}", {{"X-Client-ID;"}}, "unknown client \"\""},
              {form + "&x=1", "{\"code\":\"badparam\"}", ClientHeader(), "unexpected \"x\""}};
  for (const auto& row : rows) {
    cloud.ClearJournal();
    const Exchange exchange = Post(kLogoutUrl, row.form, row.options);
    EXPECT_EQ(200, exchange.status);
    EXPECT_EQ(row.answer, exchange.body) << row.form;
    if (*row.complaint)
      EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
    else
      EXPECT_THAT(cloud.Complaints(), IsEmpty());
  }
  EXPECT_EQ(200, ExchangeAuthKey(here.accessToken).status);
  EXPECT_EQ("{\"code\":\"good\"}", Post(kLogoutUrl, form + "&access_token=" + here.accessToken, ClientHeader()).body);
  EXPECT_THAT(cloud.FindAccount("1001")->authKeys, IsEmpty());
  EXPECT_EQ(400, Refresh(here.refreshToken).status);
  EXPECT_EQ(200, Refresh(elsewhere.refreshToken).status);
  EXPECT_EQ(200, Refresh(bob.refreshToken).status);
  EXPECT_EQ(badauth, Post(kLogoutUrl, form, ClientHeader()).body);
}

TEST_F(SimTokens, WhatIsDownStaysDownUntilItIsBroughtBack) {
  const std::string testHost = "https://identity-test.kivo.example/.well-known/jwks.json";
  const std::string host = kIdentity + "/.well-known/jwks.json";
  const struct {
    const char* what;
    long token, documents, testDocuments, account;
  } rows[] = {{"identity", 503, 503, 503, 401},
              {"identity.kivo.example", 503, 503, 200, 401},
              {"oauth2/token", 503, 200, 200, 401},
              {"*", 503, 503, 503, 503}};
  const TokenSet set = Issue();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    cloud.TakeDown(row.what);
    cloud.ClearFaults();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(row.token, Refresh(set.refreshToken).status);
    EXPECT_EQ(row.documents, Get(host).status);
    EXPECT_EQ(row.testDocuments, Get(testHost).status);
    EXPECT_EQ(row.account, ExchangeAuthKey("at-0").status);
    cloud.BringBack(row.what);
    EXPECT_EQ(200, Get(host).status);
  }
  EXPECT_EQ(200, Refresh(set.refreshToken).status);  // nothing had used the token up
  cloud.QueueFault("/oauth2/token", Fault::Answer(418, ""));
  cloud.TakeDown("identity", Fault::ResetAfterRequest());
  EXPECT_EQ(56, Refresh("rt-0").curlCode);
  cloud.BringBack();
  EXPECT_EQ(418, Refresh("rt-0").status);  // a queued fault waits meanwhile
  EXPECT_THROW(cloud.TakeDown("identty"), std::runtime_error);
}

TEST_F(SimTokens, AClientCanBeCaughtBetweenTheRotationAndItsAnswer) {
  const TokenSet set = Issue();
  std::uint64_t seen = 0;
  const auto look = [&] { seen = cloud.TokenFamilies().at(0).generation; };
  cloud.QueueFault("/oauth2/token", Fault::AllButLastByteThen(look));
  const Exchange lost = Post(kTokenUrl, RefreshForm(set.refreshToken), {{"X-Client-ID: kivo-device"}, 1500});
  EXPECT_EQ(28, lost.curlCode);
  EXPECT_THAT(lost.body, HasSubstr("refresh_token"));
  EXPECT_THAT(lost.body, Not(HasSubstr("}")));
  EXPECT_TRUE(cloud.WaitIdle());
  EXPECT_EQ(2u, seen);
  EXPECT_EQ(400, Refresh(set.refreshToken).status);  // the client is left with a token that was used
  const TokenSet next = Issue();
  seen = 0;
  cloud.QueueFault("/oauth2/token", Fault::ThenCall([&] { seen = cloud.TokenFamilies().at(1).generation; }));
  EXPECT_EQ(200, Refresh(next.refreshToken).status);
  EXPECT_TRUE(cloud.WaitIdle());
  EXPECT_EQ(2u, seen);
}

}  // namespace
