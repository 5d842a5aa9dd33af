// The identity host: authorization requests, codes and what they are bound to, and the token endpoint's refusals.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/identity_client.h"
#include "sim/simulator.h"

namespace {

using namespace std::chrono_literals;
using kivosim::Account;
using kivosim::Simulator;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class SimIdentity : public testing::Test {
 protected:
  void SetUp() override {
    cloud.AddAccount({"ann@example.com", "correct horse", "1001"});
    cloud.Start();
  }
  Simulator cloud;
};

TEST_F(SimIdentity, ASignInGivesACodeAndTheCodeGivesTokens) {
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

TEST_F(SimIdentity, FaultyAuthorizationRequestsGoBackToTheClientOnlyWhereThatIsSafe) {
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

TEST_F(SimIdentity, OnlyTheRightPasswordGivesACode) {
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

TEST_F(SimIdentity, ACodeIsBoundToWhatItWasAskedForWith) {
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

TEST_F(SimIdentity, ACodeLivesTenMinutesAndItsSecondUseTakesBackTheFirst) {
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

TEST_F(SimIdentity, FaultyTokenRequestsAreRefusedAndComplainedOf) {
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

}  // namespace
