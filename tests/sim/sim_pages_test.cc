// What a browser is shown and sent: the forms of the identity host and what they carry on, the consent in between, and
// where the account host hands a code on to.
#include "sim/sim_bench.h"

namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;

const std::string kAskingAnn = kAnn + "&ask=consent";
const std::string kRegisterUrl =
    Replaced(Replaced(Replaced(kAuthUrl, "auth?", "registration?"), "kivo-device", "kivo-device-register"),
             "login%2Fcallback", "register%2Fcallback");

/// The value of the hidden field on a page, or "".
std::string Hidden(const Exchange& page, const std::string& name) {
  const std::string field = "name=\"" + name + "\" value=\"";
  const std::size_t start = page.body.find(field);
  if (start == std::string::npos) return "";
  return page.body.substr(start + field.size(), page.body.find('"', start + field.size()) - start - field.size());
}

std::string Ticket(const std::string& url = kAuthUrl, const std::string& form = kAskingAnn) {
  return Hidden(Post(url, form), "ticket");
}

std::string Decision(const std::string& decision, const std::string& ticket) {
  return "ticket=" + ticket + "&decision=" + decision;
}

TEST_F(SimTest, EveryPageKeepsOthersAwayNeedsNoScriptAndShowsWhatOthersWroteAsText) {
  const std::string hostile = "%22%3E%3Cscript%3E%27%26%40x", shown = "&quot;&gt;&lt;script&gt;&#39;&amp;@x";
  const std::string callback = kAccount + "/device/login/callback?state=s&";
  cloud.AddAccount({"\"><script>'&@x", "pw", "1003", "<b>Eve</b>"});
  cloud.AddOAuthClient({"<i>eve", {"https://eve.example/back;script-src *"}});
  const std::string eve = Replaced(Replaced(kAuthUrl, "client_id=kivo-device", "client_id=%3Ci%3Eeve"), kRedirect,
                                   "https%3A%2F%2Feve.example%2Fback%3Bscript-src%20%2A");
  const struct {
    Exchange page;
    long status;
    std::string has;
  } rows[] = {
      {Get(kAuthUrl), 200, "<h1>Sign in</h1>"},
      {Post(kAuthUrl, "email=" + hostile + "&password=wrong"), 401, "value=\"" + shown + "\""},
      {Post(kAuthUrl, "email=a&password=wrong"), 401, "role=\"alert\" id=\"problem\">Wrong e-mail or password."},
      {Post(kAuthUrl, "email=ann%40example.com"), 400, "<h1>"},
      {Get(kRegisterUrl), 200, "<h1>Create an account</h1>"},
      {Post(kAuthUrl, kAskingAnn), 200, "<h1>Allow access?</h1>"},
      {Post(kAuthUrl, "email=" + hostile + "&password=pw&ask=consent"), 200, "&lt;b&gt;Eve&lt;/b&gt; (" + shown + ")"},
      {Post(Replaced(kAuthUrl, "offline_access", hostile), kAskingAnn), 200, "use <strong>" + shown},
      {Get(eve), 200, "&lt;i&gt;eve"},
      {Get(Replaced(kAuthUrl, kSerial, hostile)), 200, shown},
      {Get(Replaced(kAuthUrl, "client_id=kivo-device", "client_id=" + hostile)), 400, shown},
      {Get(kIdentity + "/oauth2/sessions/logout"), 200, "<h1>Signed out</h1>"},
      {Get(callback + "code=" + hostile), 200, "id=\"code\">" + shown + "<"},
      {Get(callback + "error=e&error_description=" + hostile), 200, shown},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.has + std::to_string(row.status));
    EXPECT_EQ(row.status, row.page.status);
    EXPECT_THAT(row.page.head,
                AllOf(HasSubstr("Content-Type: text/html; charset=utf-8\r\n"), Not(HasSubstr("script-src")),
                      HasSubstr("Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'"),
                      HasSubstr("Cache-Control: no-store\r\n"), HasSubstr("X-Frame-Options: DENY\r\n"),
                      HasSubstr("Referrer-Policy: no-referrer\r\n")));
    EXPECT_THAT(row.page.body, AllOf(HasSubstr(row.has), HasSubstr("<html lang=\"en\">"), Not(HasSubstr("<script")),
                                     Not(HasSubstr("<i>")), Not(HasSubstr("<b>"))));
    EXPECT_EQ("", Location(row.page));
  }
  EXPECT_THAT(Get(eve).head, HasSubstr("form-action 'self' https://eve.example http://127.0.0.1:*\r\n"));
}

TEST_F(SimTest, ConsentDecidesOnceForOneRequestAndTenMinutes) {
  const std::string old = Ticket(), other = Replaced(kAuthUrl, "state=a", "state=b");
  cloud.PassTime(601s);
  const std::string used = Ticket(), elsewhere = Ticket(), gone = Ticket();
  EXPECT_THAT(Location(Post(kAuthUrl, Decision("allow", used))),
              MatchesRegex("https://account\\.kivo\\.example/device/login/callback\\?"
                           "code=code-[0-9a-f]+&state=a%2fb\\+c%20~%7E"));
  EXPECT_EQ("https://account.kivo.example/device/login/callback?error=access_denied&state=a%2fb+c%20~%7E",
            Location(Post(kAuthUrl, Decision("deny", Ticket()))));
  const auto refused = [](const std::string& url, const std::string& form) {
    const Exchange page = Post(url, form);
    EXPECT_EQ(400, page.status) << form;
    EXPECT_EQ("", Location(page)) << form;
  };
  for (const std::string& ticket : {old, used, std::string("0")}) refused(kAuthUrl, Decision("allow", ticket));
  refused(other, Decision("allow", elsewhere));
  refused(kAuthUrl, Decision("allow", elsewhere));  // trying it elsewhere used it up
  refused(kAuthUrl, Decision("allow", "0") + "&" + kAnn);
  cloud.RemoveAccount("1001");
  refused(kAuthUrl, Decision("allow", gone));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

TEST_F(SimTest, ACodeIsHandedOnOnlyToTheMachineItselfAndOnlyWhenAskedFor) {
  const struct {
    const char *query, *location;
  } rows[] = {
      {"code=c-1&state=aZ09_-.8380", "http://127.0.0.1:8380/callback?code=c-1&state=aZ09_-.8380"},
      {"state=r.1&code=a%26b%3dc%0d%0a+%C3%A4", "http://127.0.0.1:1/callback?code=a%26b%3Dc%0D%0A%20%C3%A4&state=r.1"},
      {"error=access_denied&error_description=no&state=r.80",
       "http://127.0.0.1:80/callback?error=access_denied&state=r.80"},
      {"code=c&state=r.65536", ""},
      {"code=c&state=r.080", ""},
      {"code=c&state=r.80%00", ""},
      {"code=c&state=.80", ""},
      {"code=c&state=r.80%2F@evil.example", ""},
      {"code=c&state=r.80&state=r.81", ""},
      {"code=c&code=d&state=r.80", ""},
      {"code=c&error=e&state=r.80", ""},
      {"state=r.80", ""},
  };
  for (const char* path : {"/device/login/callback?", "/device/register/callback?"}) {
    for (const auto& row : rows) {
      const Exchange exchange = Get(kAccount + path + row.query);
      EXPECT_EQ(row.location, Location(exchange)) << row.query;
      EXPECT_EQ(*row.location != '\0', exchange.status == 303) << row.query;
    }
  }
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

}  // namespace
