// What a browser is shown and sent: texts of others on the pages, and where the account host hands a code on to.
#include "sim/sim_bench.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

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
      {Post(kAuthUrl, "email=" + hostile + "&password=wrong"), 401, "value=\"" + shown + "\""},
      {Post(kAuthUrl, "email=" + hostile + "&password=pw&ask=consent"), 200, "&lt;b&gt;Eve&lt;/b&gt; (" + shown + ")"},
      {Post(Replaced(kAuthUrl, "offline_access", hostile), kAnn + "&ask=consent"), 200, "use <strong>" + shown},
      {Get(eve), 200, "&lt;i&gt;eve"},
      {Get(Replaced(kAuthUrl, "client_id=kivo-device", "client_id=" + hostile)), 400, shown},
      {Get(callback + "code=" + hostile), 200, "id=\"code\">" + shown + "<"},
      {Get(callback + "error=e&error_description=" + hostile), 200, shown},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.has + std::to_string(row.status));
    EXPECT_EQ(row.status, row.page.status);
    EXPECT_THAT(row.page.head,
                AllOf(HasSubstr("Content-Security-Policy: default-src 'none'; style-src 'unsafe-inline'"),
                      Not(HasSubstr("script-src")), HasSubstr("Referrer-Policy: no-referrer\r\n")));
    EXPECT_THAT(row.page.body, AllOf(HasSubstr(row.has), Not(testing::ContainsRegex("<(script|i|b)[ />]"))));
  }
  EXPECT_THAT(Get(eve).head, HasSubstr("form-action 'self' https://eve.example http://127.0.0.1:*\r\n"));
}

TEST_F(SimTest, ACodeIsHandedOnOnlyToTheMachineItselfAndOnlyWhenAskedFor) {
  const struct {
    const char *query, *location;
  } rows[] = {
      {"code=c-1&state=aZ09_-.8380", "http://127.0.0.1:8380/callback?code=c-1&state=aZ09_-.8380"},
      {"error=access_denied&error_description=no&state=r.80",
       "http://127.0.0.1:80/callback?error=access_denied&state=r.80"},
      {"code=c&state=r.65536", ""},
      {"code=c&state=r.80%00", ""},
      {"code=c&state=r.80%2F@evil.example", ""},
      {"code=c&state=r.80&state=r.81", ""},
      {"code=c&code=d&state=r.80", ""},
      {"state=r.80", ""},
  };
  for (const char* path : {"/device/login/callback?", "/device/register/callback?"}) {
    for (const auto& row : rows) {
      const Exchange exchange = Get(kAccount + path + row.query);
      EXPECT_EQ(row.location, Location(exchange)) << row.query;
      EXPECT_EQ(*row.location != '\0', exchange.status == 303) << row.query;
    }
  }
  EXPECT_THAT(cloud.Complaints(), testing::IsEmpty());
}

}  // namespace
