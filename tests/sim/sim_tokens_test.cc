// The life of codes and tokens: rotation, revocation, and what each is bound to.
#include "sim/sim_bench.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::IsEmpty;

TEST_F(SimTest, EachUseReplacesTheTokensAndAnOldOneEndsThemAll) {
  const kivosim::TokenSet first = Issue(), other = Issue();
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
  EXPECT_THAT(Refresh(present, "other").body, HasSubstr("invalid_grant"));
  EXPECT_EQ(200, ExchangeAuthKey(access).status);  // which did no harm
  EXPECT_THAT(Refresh(first.refreshToken).body, HasSubstr("invalid_grant"));
  EXPECT_THAT(Refresh(present).body, HasSubstr("invalid_grant"));
  EXPECT_EQ(401, ExchangeAuthKey(access).status);
  EXPECT_EQ(200, Refresh(other.refreshToken).status);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimTest, ACodeIsBoundToWhatItWasAskedForWithLivesTenMinutesAndItsSecondUseTakesBackTheFirst) {
  cloud.AddOAuthClient({"other", {"https://account.kivo.example/device/login/callback"}});
  const std::string old = NewCode();
  cloud.PassTime(590s);
  const std::string code = NewCode();
  cloud.PassTime(11s);
  const struct {
    std::string from, to, client, description;
  } rows[] = {{"client_id=kivo-device", "client_id=other", "other", "another client"},
              {"account.kivo", "account-test.kivo", "kivo-device", "another redirect_uri"},
              {"wW1gFWFOEjXk", "wW1gFWFOEjXK", "kivo-device", "does not match the challenge"},
              {kVerifier, kChallenge, "kivo-device", "does not match the challenge"},
              {"code=code-", "code=code-0", "kivo-device", "unknown code"},
              {code, old, "kivo-device", "the code has expired"}};
  for (const auto& row : rows) {
    const Exchange exchange = Send({kTokenUrl, Replaced(CodeForm(code), row.from, row.to), {Client(row.client)}});
    EXPECT_EQ(400, exchange.status) << row.to;
    EXPECT_EQ("invalid_grant", Member(exchange, "error"));
    EXPECT_THAT(Member(exchange, "error_description"), HasSubstr(row.description));
  }
  const Exchange first = ExchangeCode(code);
  ASSERT_EQ(200, first.status);
  EXPECT_THAT(first.head, HasSubstr("Cache-Control: no-store"));
  EXPECT_EQ("openid offline_access device.sn:" + kSerial, Member(first, "scope"));
  EXPECT_EQ("invalid_grant", Member(ExchangeCode(code), "error"));
  EXPECT_TRUE(cloud.TokenFamilies().at(0).revoked);
  EXPECT_EQ(401, ExchangeAuthKey(Member(first, "access_token")).status);
  EXPECT_EQ("invalid_grant", Member(Refresh(Member(first, "refresh_token")), "error"));
}

TEST_F(SimTest, SigningOutTakesTheKeyAndTheTokensOfTheDeviceAndItsPackages) {
  const auto here = Issue(), elsewhere = cloud.IssueTokens("1001", "kivo-device", "OTHER"), bob = Issue("1002");
  const auto photos = Issue("1001", "kivo-package-photos");
  const auto code = [](const std::string& form) { return Member(Send({kApi + "logout", form, {Client()}}), "code"); };
  EXPECT_EQ("badauth", code(Replaced(kLogout, kSerial, "OTHER")));
  for (const std::string& token : {bob.accessToken, std::string("at-0")})
    EXPECT_EQ("badauth", code(kLogout + "&access_token=" + token));
  EXPECT_EQ(401, ExchangeAuthKey(photos.accessToken).status);  // the device's key is not for packages
  EXPECT_EQ(200, ExchangeAuthKey(here.accessToken).status);
  EXPECT_EQ("good", code(kLogout + "&access_token=" + here.accessToken));
  EXPECT_THAT(cloud.FindAccount("1001")->authKeys, IsEmpty());
  EXPECT_EQ(400, Refresh(here.refreshToken).status);
  EXPECT_EQ(400, Refresh(photos.refreshToken, "kivo-package-photos").status);
  EXPECT_EQ(200, Refresh(elsewhere.refreshToken).status);
  EXPECT_EQ(200, Refresh(bob.refreshToken).status);
  EXPECT_EQ("badauth", code(kLogout));
}

}  // namespace
