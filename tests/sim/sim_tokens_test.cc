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
using kivosim::Simulator;
using kivosim::TokenSet;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kGrantUrl = kAccount + "/migration/api/v1/device/core/authorization_code/grant";
const std::string kLogoutUrl = kAccount + "/device/api/logout";

const std::string kLogoutForm = "serial_no=" + kSerial + "&auth_key=ak-1";

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

TEST_F(SimTokens, SigningOutTakesTheKeyAndTheTokensOfTheDevice) {
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

TEST_F(SimTokens, FaultyCallsOfTheAccountHostAreComplainedOf) {
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

TEST_F(SimTokens, WhatIsDownStaysDownUntilItIsBroughtBack) {
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
