// Builds the pages. No state. A value that Row() and Form() are given is HTML already.
#include "page.h"

#include <cstring>
#include <ctime>

namespace console {

const char* const kStyle = R"(
:root{color-scheme:light dark;--bg:#eef1f5;--card:#fff;--ink:#1b2430;--soft:#566274;--line:#d9dfe7;--main:#1f5fbf;
--on:#fff;--bad:#8f1d1d;--badbg:#fdecec}
@media(prefers-color-scheme:dark){:root{--bg:#12161c;--card:#1b212a;--ink:#e7ecf3;--soft:#9eabbd;--line:#323b48;
--main:#82b1ff;--on:#0c1420;--bad:#ffb4b4;--badbg:#3a1d20}}
body{margin:0;padding:1.5rem 1rem 3rem;background:var(--bg);color:var(--ink);font:1rem/1.5 system-ui,sans-serif}
*{box-sizing:border-box}header,main{max-width:44rem;margin:0 auto}
h1{font-size:1.5rem;line-height:1.2;margin:.5rem 0 1.25rem}h2{font-size:1.05rem;margin:0 0 .75rem}
section{background:var(--card);border:1px solid var(--line);border-radius:.9rem;padding:1.25rem;margin:0 0 1rem}
p{margin:0 0 1rem;max-width:38rem}p:last-child,form:last-child{margin-bottom:0}
dl{display:grid;grid-template-columns:10rem 1fr;gap:.5rem 1rem;margin:0}
dt{color:var(--soft)}dd{margin:0;overflow-wrap:anywhere}code{font-size:.9em}
button,a.button{display:inline-block;min-height:2.75rem;padding:.55rem 1.3rem;border:1px solid var(--main);
border-radius:.6rem;background:var(--main);color:var(--on);font:inherit;font-weight:600;text-decoration:none;cursor:pointer}
button:focus-visible,a:focus-visible,summary:focus-visible{outline:3px solid var(--main);outline-offset:3px}
details{margin-top:1.25rem}summary{color:var(--main);font-weight:600;cursor:pointer;padding:.6rem 0}
.alert{background:var(--badbg);color:var(--bad);border-color:currentColor}
@media(max-width:34rem){dl{grid-template-columns:1fr;gap:0}dd{margin-bottom:.7rem}
button,a.button{width:100%;text-align:center}}
)";

namespace {

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) out += std::strchr("&<>\"'", c) && c ? "&#" + std::to_string(c) + ";" : std::string(1, c);
  return out;
}

std::string Page(const std::string& title, const std::string& body) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
         Escaped(title) + "</title>\n<link rel=\"stylesheet\" href=\"/style.css\">\n</head>\n<body>\n<header><h1>" +
         Escaped(title) + "</h1></header>\n<main>\n" + body + "</main>\n</body>\n</html>\n";
}

std::string Alert(const std::string& words, const std::string& form = "") {
  if (words.empty()) return "";
  return "<section class=\"alert\" role=\"alert\"><p>" + Escaped(words) + "</p>" + form + "</section>\n";
}

std::string Form(const std::string& action, const std::string& token, const std::string& id, const std::string& label,
                 const std::string& fields = "") {
  return "<form method=\"post\" action=\"" + action + "\"><input type=\"hidden\" name=\"csrf\" value=\"" +
         Escaped(token) + "\">" + fields + "<button id=\"" + id + "\">" + Escaped(label) + "</button></form>";
}

std::string LocalSignOut(const std::string& token) {
  return "<p>The device can forget the account without asking; the account centre goes on listing it.</p>" +
         Form("/sign-out", token, "sign-out-local", "Sign out only on this device",
              "<input type=\"hidden\" name=\"local\" value=\"1\">");
}

std::string When(std::time_t time) {
  std::tm parts{};
  char text[64] = "";
  localtime_r(&time, &parts);
  std::strftime(text, sizeof text, "%A, %-d %B %Y, %H:%M %Z", &parts);
  return text;
}

std::string Row(const char* name, const std::string& id, const std::string& value) {
  return std::string("<dt>") + name + "</dt><dd id=\"" + id + "\">" + (value.empty() ? "–" : value) + "</dd>\n";
}

std::string TokenText(std::int64_t until) {
  if (until <= 0) return until == 0 ? "none" : "not readable";
  return std::time(nullptr) > until ? "expired; it is renewed when it is next needed" : "valid until " + When(until);
}

std::string AccountSection(const DeviceState& state, const std::string& token) {
  if (!state.signedIn) {
    return "<section aria-labelledby=\"account\"><h2 id=\"account\">Account</h2>"
           "<p>This device is not signed in. You will be led to the account centre&#39;s own page: your password is "
           "typed there, and never seen by this device.</p>" +
           Form("/sign-in", token, "sign-in", "Sign in") + "</section>\n";
  }
  return "<section aria-labelledby=\"account\"><h2 id=\"account\">Account</h2><dl>\n" +
         Row("E-mail", "account-email", Escaped(state.email)) + Row("Name", "account-name", Escaped(state.name)) +
         Row("User id", "account-id", Escaped(state.userId)) +
         Row("Profile fetched", "profile-time", state.lastQuery > 0 ? When(state.lastQuery) : "") +
         "</dl><details><summary id=\"sign-out\">Sign out</summary><p>The account, its tokens and the scheduled report "
         "are removed from this device, and the account centre is told.</p>" +
         Form("/sign-out", token, "sign-out-confirm", "Sign out now") + "</details></section>\n";
}

}  // namespace

std::string IndexPage(const DeviceState& state, const Session& session) {
  const bool offer = session.notice.offerLocalSignOut && state.signedIn;
  return Page("Device account", Alert(session.notice.words, offer ? LocalSignOut(session.formToken) : "") +
                                    Alert(state.problem) + AccountSection(state, session.formToken) +
                                    "<section aria-labelledby=\"device\"><h2 id=\"device\">On this device</h2><dl>\n" +
                                    Row("Access token", "token-state", TokenText(state.tokenUntil)) +
                                    Row("Report job", "report-job",
                                        state.jobLine.empty() ? "" : "<code>" + Escaped(state.jobLine) + "</code>") +
                                    "</dl></section>\n");
}

std::string MessagePage(const std::string& title, const std::string& words) {
  return Page(title, Alert(words) + "<p><a class=\"button\" href=\"/\">Back to the device</a></p>\n");
}

}  // namespace console
