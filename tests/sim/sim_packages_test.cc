// Tokens of installed packages: their configuration, the grant on the strength of the device's token, the families that
// come of it, and the grant to a monitoring service on the strength of a package's token.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>

#include "sim/control.h"
#include "sim/identity_client.h"
#include "sim/simulator.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kApi = kAccount + "/oauth2/api/v1/device/", kPhotos = "kivo-package-photos";
const std::string kConfigUrl = kApi + "package/config/pkce/client?package_name=";
const std::string kGrantUrl = kApi + "package/authorization_code/grant";
const std::string kWatchUrl = kApi + "pulsewatch/authorization_code/grant";
const std::string kCallback = "https%3A%2F%2Faccount.kivo.example%2Fpackage%2Fphotos%2Flogin%2Fcallback";
const std::string kGrant = "client_id=" + kPhotos + "&redirect_url=" + kCallback +
                           "&state=1&code_challenge=" + kChallenge +
                           "&scopes[]=openid&scopes[]=offline_access&scopes[]=profile&scopes[]=email";
const std::string kWatch = "client_id=w1&redirect_url=https%3A%2F%2Fw.example%2F&state=s&scopes[]=read%20write";

class SimPackages : public testing::Test {
 protected:
  void SetUp() override {
    cloud.AddAccount({"ann@example.com", "correct horse", "1001"});
    cloud.ChangeAccount("1001", [](kivosim::Account& ann) { ann.authKeys[kSerial] = "ak-1"; });
    cloud.Start();
    device = cloud.IssueTokens("1001", "kivo-device", kSerial).accessToken;
    watch = cloud.IssueTokens("1001", "kivo-package-pulsewatch", kSerial).accessToken;
  }
  static CurlOptions With(const std::string& token, const std::string& client) {
    return {{"Authorization: Bearer " + token, "X-Client-ID: " + client}};
  }
  Exchange Config(const std::string& package) { return Get(kConfigUrl + package, With(device, "")); }
  Exchange Grant() { return Post(kGrantUrl, kGrant, With(device, kPhotos)); }
  Exchange Watch() { return Post(kWatchUrl, kWatch, With(watch, "w1")); }
  Exchange Redeem(const std::string& code) {
    const std::string form = Replaced(CodeForm(code), "kivo-device", kPhotos);
    return Post(kTokenUrl, Replaced(form, kRedirect, kCallback), ClientHeader(kPhotos));
  }
  static std::string Renewal(const std::string& token) {  ///< "", or the error
    return Member(Post(kTokenUrl, RefreshForm(token, kPhotos), ClientHeader(kPhotos)), "error");
  }
  std::string Control(const std::string& path, const std::string& body) {
    return Post(control.Url() + path, body).body;
  }
  kivosim::Simulator cloud;
  kivosim::Control control{cloud, 0, {}};
  std::string device, watch;
};

TEST_F(SimPackages, ASignedInDeviceGetsTokensThatRotateAndGoWithTheSignOut) {
  const Exchange config = Get(Replaced(kConfigUrl, "account", "account-test") + "photos", With(device, ""));
  EXPECT_EQ(R"({"audience":"https://account-test*","auth_endpoint":"https://identity-test*/oauth2/auth","client_id":)"
            R"("kivo-package-photos","end_session_endpoint":"https://identity-test*/oauth2/sessions/logout",)"
            R"("login_redirect_uri":"https://account-test*/package/photos/login/callback",)"
            R"("logout_redirect_uri":"https://account-test*/package/photos/logout/callback","scope":)"
            R"("openid offline_access profile email","token_endpoint":"https://identity-test*/oauth2/token"})",
            std::regex_replace(config.body, std::regex("\\.kivo\\.example"), "*"));
  const std::string code = Member(Grant(), "grant_code");
  EXPECT_EQ("invalid_grant", Member(ExchangeCode(code), "error"));  // not the device's
  const Exchange first = Redeem(code), other = Redeem(Member(Grant(), "grant_code"));
  EXPECT_EQ("openid offline_access profile email", Member(first, "scope")) << first.body;
  EXPECT_EQ("", Renewal(Member(first, "refresh_token")));
  EXPECT_EQ("invalid_grant", Renewal(Member(first, "refresh_token")));
  EXPECT_EQ(401, ExchangeAuthKey(Member(first, "access_token")).status);
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
  EXPECT_THAT(Member(Watch(), "grant_code"), testing::StartsWith("code-"));
  Post(kAccount + "/device/api/logout", "serial_no=" + kSerial + "&auth_key=ak-1", ClientHeader());
  EXPECT_EQ("invalid_grant", Renewal(Member(other, "refresh_token")));
  EXPECT_THAT((std::vector<long>{Config("photos").status, Grant().status, Watch().status}), ElementsAre(401, 401, 401));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimPackages, FaultyCallsAreRefusedAndComplainedOf) {
  const CurlOptions good = With(device, kPhotos);
  const struct {
    std::string url, form;  // form "": GET
    CurlOptions options;
    long status;
    const char* complaint;
  } rows[] = {
      {kConfigUrl + "photos", "", {}, 400, "Authorization must be there once"},
      {kConfigUrl + "photos", "", With(watch, ""), 401, "the token is one of client \"kivo-package-pulsewatch\""},
      {kConfigUrl + "photos&a=1", "", good, 400, "unexpected \"a\""},
      {kConfigUrl + "photos", "package_name=photos", good, 400, "method is POST"},
      {kGrantUrl, kGrant, With(device, "kivo-device"), 400, "header X-Client-ID is \"kivo-device\""},
      {kGrantUrl, Replaced(kGrant, "photos%2F", "pulsewatch%2F"), good, 400, "is no redirect URI of "},
      {kGrantUrl, Replaced(kGrant, "challenge=E", "challenge="), good, 400, "\"code_challenge\" is \"9Melhoa"},
      {kGrantUrl, Replaced(kGrant, "&scopes[]=email", ""), good, 400,
       "the scopes are \"openid offline_access profile\""},
      {kGrantUrl, Replaced(Replaced(kGrant, kPhotos, "kivo-device"), kCallback, kRedirect), With(device, "kivo-device"),
       400, "\"kivo-device\" is no client of a package"},
      {kWatchUrl, kWatch, With(device, "w1"), 401, "the token is one of client \"kivo-device\""},
      {kWatchUrl, kWatch + "&scopes[]=x", With(watch, "w1"), 400, "unexpected \"scopes[]\""}};
  for (const auto& row : rows) {
    cloud.ClearJournal();
    const Exchange answer = row.form.empty() ? Get(row.url, row.options) : Post(row.url, row.form, row.options);
    EXPECT_EQ(row.status, answer.status) << row.complaint;
    EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
  EXPECT_EQ(401, ExchangeAuthKey(watch).status);  // the device's key is not for packages
}

TEST_F(SimPackages, ControlAddsAndRemovesPackagesAndSpoilsTheirTokensAlone) {
  EXPECT_EQ(404, Config("songbook").status);
  Control("/packages", R"({"package":"songbook"})");
  EXPECT_EQ("kivo-package-songbook", Member(Config("songbook"), "client_id"));
  EXPECT_THAT(Control("/packages", R"({"package":"a/b"})"), HasSubstr("is no name of a package"));
  Control("/expire-tokens", R"({"client_id":"kivo-package-pulsewatch"})");
  EXPECT_EQ(401, Watch().status);
  const std::string issue = R"({"user_id":"1001","client_id":"kivo-package-photos"})";
  for (const bool remove : {false, true}) {
    const Exchange tokens = Post(control.Url() + "/tokens", issue);
    Control(remove ? "/remove-package" : "/revoke-tokens", remove ? R"({"package":"photos"})" : issue);
    EXPECT_EQ("invalid_grant", Renewal(Member(tokens, "refresh_token"))) << remove;
  }
  EXPECT_THAT((std::vector<long>{Config("photos").status, Grant().status}), ElementsAre(404, 404));
  EXPECT_THAT(Get(control.Url() + "/packages").body,
              testing::MatchesRegex(".*:\"pulsewatch\".*\"kivo-package-songbook\",\"package\":\"songbook\".*\n"));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

}  // namespace
