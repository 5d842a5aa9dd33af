// The identity host: authorization requests, codes and what they are bound to, the token endpoint's refusals, and the
// signature of id tokens.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

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
using testing::StartsWith;

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
  EXPECT_EQ("bearer", Member(tokens, "token_type"));
  EXPECT_EQ("3600", Member(tokens, "expires_in"));
  EXPECT_EQ("openid offline_access device.sn:" + kSerial, Member(tokens, "scope"));
  EXPECT_EQ("1001", Member(ExchangeAuthKey(Member(tokens, "access_token")), "user_id"));
  const auto families = cloud.TokenFamilies();
  ASSERT_EQ(1u, families.size());
  EXPECT_EQ(kSerial, families[0].serial);
  EXPECT_EQ(12u, families[0].refreshHash.size());
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimIdentity, FaultyAuthorizationRequestsGoBackToTheClientOnlyWhereThatIsSafe) {
  const struct {
    const char *from, *to, *error, *complaint;  // error "": answered 400, nothing sent back
  } rows[] = {
      {"client_id=kivo-device", "client_id=eve", "", "unknown client \"eve\""},
      {"account.kivo.example%2Fdevice", "evil.example%2Fdevice", "", "is no redirect_uri of kivo-device"},
      {"login%2Fcallback", "login%2Fcallback%2F", "", "is no redirect_uri of kivo-device"},
      {"login%2Fcallback", "register%2Fcallback", "", "is no redirect_uri of kivo-device"},
      {"response_type=code", "response_type=token", "unsupported_response_type", "\"token\""},
      {"method=S256", "method=plain", "invalid_request", "\"code_challenge_method\" is \"plain\""},
      {"&code_challenge_method=S256", "", "invalid_request", "\"code_challenge_method\" is missing"},
      {"code_challenge=E9", "code_challenge=E", "invalid_request", "no S256 challenge"},
      {"code_challenge=E9", "code_challenge=E%3D", "invalid_request", "no S256 challenge"},
      {"&state=a%2fb+c%20~%7E", "", "invalid_request", "\"state\" is missing"},
      {"scope=openid", "scope=openidx", "invalid_scope", "without \"openid\""},
      {"&audience", "&prompt=x&audience", "invalid_request", "unexpected \"prompt\""},
      {"&audience", "&scope=openid&audience", "invalid_request", "\"scope\" comes more than once"},
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
              {"email=1001&password=correct+horse", 401, ""},
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

TEST_F(SimIdentity, RegistrationMakesAnAccountOnce) {
  const std::string url =
      Replaced(Replaced(Replaced(kAuthUrl, "auth?", "registration?"), "kivo-device", "kivo-device-register"),
               "login%2Fcallback", "register%2Fcallback");
  EXPECT_THAT(NewCode(url, "email=bob%40example.com&password=pw"), StartsWith("code-"));
  EXPECT_EQ("pw", cloud.FindAccount("bob@example.com").value_or(Account{}).password);
  EXPECT_EQ(400, Post(url, "email=bob%40example.com&password=pw").status);
  EXPECT_EQ(400, Post(url, "email=bob&password=pw").status);
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
  const auto counts = cloud.TokenRequests();
  EXPECT_EQ(3u, counts.at("authorization_code").requests);
  EXPECT_EQ(1u, counts.at("authorization_code").granted);
  EXPECT_EQ(1u, counts.at("refresh_token").requests);
}

TEST_F(SimIdentity, FaultyTokenRequestsAreRefusedAndComplainedOf) {
  const std::string code = CodeForm(NewCode()), refresh = RefreshForm("rt-0");
  const struct {
    std::string form;
    CurlOptions options;
    const char *error, *complaint;
  } rows[] = {
      {code, {}, "invalid_request", "no header X-Client-ID"},
      {code, ClientHeader("other"), "invalid_request", "header X-Client-ID is \"other\""},
      {code, {{"X-Client-ID: kivo-device", "X-Client-ID: kivo-device"}}, "invalid_request", "more than one header"},
      {refresh, {}, "invalid_request", "no header X-Client-ID"},
      {Replaced(code, "kivo-device", "eve"), ClientHeader("eve"), "invalid_client", "unknown client"},
      {RefreshForm("rt-0", "eve"), ClientHeader("eve"), "invalid_client", "unknown client"},
      {code + "&scope=openid", ClientHeader(), "invalid_request", "unexpected \"scope\""},
      {"client_id=kivo-device&" + Replaced(code, "&client_id=kivo-device", ""), ClientHeader(), "invalid_request",
       "expected \"grant_type\""},
      {Replaced(code, "&code_verifier=" + kVerifier, ""), ClientHeader(), "invalid_request", "found the end"},
      {Replaced(code, kVerifier, kVerifier.substr(1)), ClientHeader(), "invalid_request", "43 to 128"},
      {Replaced(refresh, "rt-0", ""), ClientHeader(), "invalid_request", "\"refresh_token\" is empty"},
      {"grant_type=password&username=a", ClientHeader(), "unsupported_grant_type", "\"grant_type\" is \"password\""},
      {"", ClientHeader(), "invalid_request", "no \"grant_type\""},
      {code, {{"X-Client-ID: kivo-device", "Content-Type: text/plain"}}, "invalid_request", "grant_type"},
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

std::string FromBase64Url(std::string text) {
  for (char& c : text) c = c == '-' ? '+' : c == '_' ? '/' : c;
  const std::size_t padding = (4 - text.size() % 4) % 4;
  text.append(padding, '=');
  std::string bytes(text.size(), '\0');
  const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                   reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  bytes.resize(size < 0 ? 0 : static_cast<std::size_t>(size) - padding);
  return bytes;
}

/// Checks an ES256 JWT with a published key, by OpenSSL alone.
bool Verifies(const std::string& token, const Json::Value& jwk) {
  static const unsigned char kHead[] = {0x30, 0x59, 0x30, 0x13, 0x06, 0x07, 0x2a, 0x86, 0x48,
                                        0xce, 0x3d, 0x02, 0x01, 0x06, 0x08, 0x2a, 0x86, 0x48,
                                        0xce, 0x3d, 0x03, 0x01, 0x07, 0x03, 0x42, 0x00, 0x04};
  const std::string der = std::string(reinterpret_cast<const char*>(kHead), sizeof kHead) +
                          FromBase64Url(jwk["x"].asString()) + FromBase64Url(jwk["y"].asString());
  const auto* at = reinterpret_cast<const unsigned char*>(der.data());
  EVP_PKEY* key = d2i_PUBKEY(nullptr, &at, static_cast<long>(der.size()));
  const std::size_t dot = token.rfind('.');
  const std::string pair = FromBase64Url(token.substr(dot + 1));
  if (!key || pair.size() != 64) return false;
  const auto* bytes = reinterpret_cast<const unsigned char*>(pair.data());
  ECDSA_SIG* signature = ECDSA_SIG_new();
  ECDSA_SIG_set0(signature, BN_bin2bn(bytes, 32, nullptr), BN_bin2bn(bytes + 32, 32, nullptr));
  unsigned char* encoded = nullptr;
  const int size = i2d_ECDSA_SIG(signature, &encoded);
  EVP_MD_CTX* context = EVP_MD_CTX_new();
  EVP_DigestVerifyInit(context, nullptr, EVP_sha256(), nullptr, key);
  const bool good = EVP_DigestVerify(context, encoded, static_cast<std::size_t>(size),
                                     reinterpret_cast<const unsigned char*>(token.data()), dot) == 1;
  EVP_MD_CTX_free(context);
  OPENSSL_free(encoded);
  ECDSA_SIG_free(signature);
  EVP_PKEY_free(key);
  return good;
}

Json::Value Parse(const std::string& text) {
  Json::Value json;
  std::istringstream(text) >> json;
  return json;
}

TEST_F(SimIdentity, IdTokensAreSignedWithThePublishedKey) {
  const std::string token = Member(ExchangeCode(NewCode()), "id_token");
  const Json::Value configuration = Parse(Get(kIdentity + "/.well-known/openid-configuration").body);
  const Json::Value jwk = Parse(Get(configuration["jwks_uri"].asString()).body)["keys"][0];
  EXPECT_TRUE(Verifies(token, jwk));
  const std::size_t body = token.find('.') + 1;
  EXPECT_FALSE(Verifies(Replaced(token, token.substr(body + 4, 1), token[body + 4] == 'A' ? "B" : "A"), jwk));
  const Json::Value head = Parse(FromBase64Url(token.substr(0, body - 1)));
  EXPECT_EQ("ES256", head["alg"].asString());
  EXPECT_EQ(jwk["kid"].asString(), head["kid"].asString());
  const Json::Value claims = Parse(FromBase64Url(token.substr(body, token.rfind('.') - body)));
  EXPECT_EQ(kIdentity, claims["iss"].asString());
  EXPECT_EQ("1001", claims["sub"].asString());
  EXPECT_EQ("kivo-device", claims["aud"].asString());
  EXPECT_EQ("ann@example.com", claims["email"].asString());
  EXPECT_EQ(3600, claims["exp"].asInt64() - claims["iat"].asInt64());
  EXPECT_LE(std::abs(claims["iat"].asInt64() - time(nullptr)), 60);
}

TEST_F(SimIdentity, TheEndOfASessionLeadsBackToRegisteredPlacesOnly) {
  const std::string url = kIdentity + "/oauth2/sessions/logout";
  EXPECT_EQ(200, Get(url).status);
  const std::string back =
      url + "?post_logout_redirect_uri=https%3A%2F%2Faccount.kivo.example%2Fdevice%2Flogout%2Fcallback";
  EXPECT_EQ("https://account.kivo.example/device/logout/callback?state=s%201", Location(Get(back + "&state=s+1")));
  EXPECT_EQ(400, Get(Replaced(back, "account", "evil")).status);
}

}  // namespace
