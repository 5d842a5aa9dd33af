// That the cloud lets no malformed request pass and says what was wrong with it: what makes it a judge of the library.
#include "sim/sim_bench.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kHolder = kDevice + "&id=1001&auth_key=ak-1", kPhotos = "kivo-package-photos";
const std::string kCallback = "https%3A%2F%2Faccount.kivo.example%2Fpackage%2Fphotos%2Flogin%2Fcallback";
const std::string kSecret = "&passwd=correct%20horse&email=x%40y";

/// The request with something changed: in its form, else in its address, else in a header.
Ask In(Ask ask, const std::string& from, const std::string& to) {
  for (std::string* text : {&ask.form, &ask.url, &ask.headers.at(0), &ask.headers.back()}) {
    if (text->find(from) == std::string::npos) continue;
    *text = Replaced(*text, from, to);
    return ask;
  }
  throw std::invalid_argument(from);
}

Ask With(Ask ask, const std::string& more) {
  (ask.form == "-" ? ask.url : ask.form) += more;
  return ask;
}

TEST_F(SimTest, FaultyRequestsAreRefusedInTheirOwnWayAndComplainedOf) {
  const std::string bearer = Bearer(Issue().accessToken), none = "Accept: */*";
  const std::string watchToken = Bearer(Issue("1001", "kivo-package-pulsewatch").accessToken);
  const Ask login{kApi + "password_login", kLogin, {none}};
  const Ask report{kApi + "report", kHolder + "&timezone=Europe%2FBerlin&serial_no=" + kSerial + "&lu_info=", {none}};
  const Ask update{kApi + "user/update", kHolder + "&serial_no=" + kSerial, {none}};
  const Ask exchange{kCore + "core/authkey/exchange", "", {bearer}};
  const Ask grant{kAccount + "/migration/api/v1/device/core/authorization_code/grant",
                  "client_id=kivo-device&redirect_url=" + kRedirect + "&state=1790000000&code_challenge=" + kChallenge +
                      "&auth_key=ak-1&scopes[]=openid&scopes[]=device.sn%3A" + kSerial,
                  {Client()}};
  const Ask logout{kApi + "logout", kLogout, {Client()}};
  const Ask config{kCore + "package/config/pkce/client?package_name=photos", "-", {bearer}};
  const Ask package{kCore + "package/authorization_code/grant",
                    "client_id=" + kPhotos + "&redirect_url=" + kCallback + "&state=1&code_challenge=" + kChallenge +
                        "&scopes[]=openid&scopes[]=offline_access&scopes[]=profile&scopes[]=email",
                    {bearer, Client(kPhotos)}};
  const Ask code{kTokenUrl, CodeForm(NewCode()), {Client()}};
  const std::string wrong = "\"lu_token\" is wrong", grantType = "grant_type=authorization_code&",
                    client = "client_id=kivo-device&";
  const struct {
    Ask ask;
    long status;
    const char* answer;
    std::string complaint;  // "": refused for what it says, not for how
  } rows[] = {
      {In(login, "&mac=", "&kivoID=1001&mac="), 400, "badparam", "expected \"mac\", found \"kivoID\""},
      {In(login, "430450fe", "430450ff"), 400, "badauth", wrong},
      {In(login, "&type=", "&kivoID=1001&type="), 400, "badauth", wrong},  // an id that the token does not cover
      {In(login, "correct%20", "correct+"), 400, "badparam", "unescaped byte in \"correct+horse\""},
      {In(login, "%3A01", "%3a01"), 400, "badparam", "bad escape in \"02%3A00%3A5e%3A00%3A00%3a01\""},
      {In(login, "%3A01", "%3A0%31"), 400, "badparam", "needless escape in \"02%3A00%3A5e%3A00%3A00%3A0%31\""},
      {In(login, "%20horse", "%20Horse"), 400, "badauth", ""},
      {{login.url, kLogin, {}, "PUT"}, 400, "", "method is PUT"},
      {{login.url, kLogin, {"Content-Type: text/plain"}}, 400, "", "content type"},
      {{login.url + "?a=1", kLogin}, 400, "", "query text in the URL"},
      {{login.url, kLogin, {Client(std::string(100000, 'A'))}}, 400, "", "header limit"},
      {{kApi + "no_such", kLogin}, 404, "", "no such path"},
      {{kAccount + "/", kLogin, {"Host: evil.example"}}, 404, "", "no such host"},
      {{kAccount + "/", kLogin, {"Host: account-test.kivo.example"}}, 404, "", "handshake was for"},
      {In(report, "Europe%2FBerlin", "A%2F..%2FUTC"), 400, "badparam", "\"timezone\" is \"A/../UTC\""},
      {In(report, "ak-1", "ak-2"), 400, "{\"code\":\"badauth\"}", ""},
      {With(update, "&email=x%40y"), 400, "badauth", "\"email\" without \"passwd\""},
      {With(update, kSecret + "&passwd_new=a"), 400, "badparam", "\"passwd_confirmation\" is not \"passwd_new\""},
      {With(update, "&country=DEU" + kSecret), 400, "badparam", "unexpected \"passwd\""},
      {{exchange.url, ""}, 400, "", "Authorization must be there once"},
      {With(exchange, "a=1"), 400, "", "there is a body"},
      {In(grant, "ID: kivo-device", "ID: other"), 400, "", "header X-Client-ID is \"other\""},
      {In(grant, "login", "logout"), 400, "", "is no redirect URI"},
      {In(grant, kSerial, "OTHER"), 400, "", "the scope names device \"OTHER\""},
      {In(logout, "kivo-device", "eve"), 200, "badparam", "unknown client"},
      {In(logout, "ak-1", "ak-2"), 200, "badauth", ""},
      {{config.url, "-", {watchToken}}, 401, "", "the token is one of client \"kivo-package-pulsewatch\""},
      {In(package, "photos%2F", "pulsewatch%2F"), 400, "", "is no redirect URI of "},
      {In(package, "&scopes[]=email", ""), 400, "", "the scopes are \"openid offline_access profile\""},
      {In(In(code, "kivo-device", "eve"), "kivo-device", "eve"), 400, "invalid_client", "unknown client"},
      {In(code, grantType + client, client + grantType), 400, "invalid_request", "expected \"grant_type\""},
      {In(code, kVerifier, kVerifier.substr(1)), 400, "invalid_request", "43 to 128"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ask.url + " " + row.ask.form);
    cloud.ClearJournal();
    const Exchange answer = Send(row.ask);
    EXPECT_EQ(row.status, answer.status);
    EXPECT_THAT(answer.body, HasSubstr(row.answer));
    if (row.complaint.empty())
      EXPECT_THAT(cloud.Complaints(), IsEmpty());
    else
      EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
  }
  EXPECT_EQ(2u, cloud.Accounts().size());
  EXPECT_TRUE(cloud.FindAccount("ann@example.com")->reports.empty());
  cloud.ClearJournal();
  for (const Ask& good : {login, report, update, exchange, grant, config, package, code, logout})
    EXPECT_EQ(200, Send(good).status) << good.url << " " << good.form;  // and none of the others used anything up
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimTest, FaultyAuthorizationRequestsGoBackToTheClientOnlyWhereThatIsSafe) {
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
    for (const char* form : {"-", kAnn.c_str()}) {
      SCOPED_TRACE(row.to + std::string(form));
      cloud.ClearJournal();
      const Exchange exchange = Post(Replaced(kAuthUrl, row.from, row.to), form);
      EXPECT_EQ(*row.error ? 303 : 400, exchange.status);
      EXPECT_THAT(Location(exchange), *row.error ? HasSubstr("/device/login/callback?error=" + std::string(row.error))
                                                 : testing::Matcher<std::string>(""));
      EXPECT_THAT(cloud.Complaints(), ElementsAre(HasSubstr(row.complaint)));
    }
  }
}

}  // namespace
