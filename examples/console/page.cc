// Builds the pages. No state. The style's digest stands in the policy of each answer: change it here and nowhere else.
#include "page.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <ctime>
#include <map>

namespace console {
namespace {

const std::string kStyle = R"(
:root{color-scheme:light dark;--bg:#eef1f5;--card:#fff;--ink:#1b2430;--soft:#566274;--line:#d9dfe7;--main:#1f5fbf;
--on:#fff;--bad:#8f1d1d;--badbg:#fdecec}
@media(prefers-color-scheme:dark){:root{--bg:#12161c;--card:#1b212a;--ink:#e7ecf3;--soft:#9eabbd;--line:#323b48;
--main:#82b1ff;--on:#0c1420;--bad:#ffb4b4;--badbg:#3a1d20}}
*{box-sizing:border-box}
body{margin:0;padding:1.5rem 1rem 3rem;background:var(--bg);color:var(--ink);font:1rem/1.5 system-ui,sans-serif}
header,main{max-width:44rem;margin:0 auto}
h1{font-size:1.5rem;line-height:1.2;margin:.5rem 0 1.25rem}h2{font-size:1.05rem;margin:0 0 .75rem}
section{background:var(--card);border:1px solid var(--line);border-radius:.9rem;padding:1.25rem;margin:0 0 1rem}
p{margin:0 0 1rem;max-width:38rem}p:last-child,form:last-child{margin-bottom:0}
dl{display:grid;grid-template-columns:10rem 1fr;gap:.5rem 1rem;margin:0}
dt{color:var(--soft)}dd{margin:0;overflow-wrap:anywhere}code{font-size:.9em}
button,a.button{display:inline-block;min-height:2.75rem;padding:.55rem 1.3rem;border:1px solid var(--main);
border-radius:.6rem;background:var(--main);color:var(--on);font:inherit;font-weight:600;text-decoration:none;cursor:pointer}
.quiet,a.button.quiet{background:transparent;color:var(--main)}
button:focus-visible,a:focus-visible{outline:3px solid var(--main);outline-offset:3px}
.actions{display:flex;flex-wrap:wrap;gap:.75rem;margin-top:1.25rem}
.alert{background:var(--badbg);color:var(--bad);border-color:currentColor}
@media(max-width:34rem){dl{grid-template-columns:1fr;gap:0}dd{margin-bottom:.7rem}
.actions>*,.actions button,a.button{width:100%;text-align:center}}
)";

std::string Escaped(const std::string& text) {
  static const std::map<char, const char*> kEscapes = {
      {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};
  std::string out;
  for (const char c : text) {
    const auto escape = kEscapes.find(c);
    out += escape == kEscapes.end() ? std::string(1, c) : escape->second;
  }
  return out;
}

std::string Page(const std::string& title, const std::string& body) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
         Escaped(title) + "</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n<header><h1>" + Escaped(title) +
         "</h1></header>\n<main>\n" + body + "</main>\n</body>\n</html>\n";
}

std::string Alert(const std::string& words, const std::string& form = "") {
  if (words.empty()) return "";
  return "<section class=\"alert\" role=\"alert\"><p>" + Escaped(words) + "</p>" + form + "</section>\n";
}

/// One button that posts. `fields` is HTML already.
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

std::string When(std::int64_t time) {
  const std::time_t seconds = time;
  std::tm parts{};
  char text[64] = "", machine[64] = "";
  localtime_r(&seconds, &parts);
  std::strftime(text, sizeof text, "%A, %-d %B %Y, %H:%M %Z", &parts);
  std::strftime(machine, sizeof machine, "%Y-%m-%dT%H:%M%z", &parts);
  return "<time datetime=\"" + std::string(machine) + "\">" + text + "</time>";
}

std::string Age(std::int64_t seconds) {
  if (seconds < 60) return "less than a minute";
  const char* unit = seconds < 3600 ? "minute" : seconds < 86400 ? "hour" : "day";
  const std::int64_t count = seconds / (seconds < 3600 ? 60 : seconds < 86400 ? 3600 : 86400);
  return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}

/// `value` is HTML already.
std::string Row(const char* name, const std::string& id, const std::string& value) {
  return std::string("<dt>") + name + "</dt><dd id=\"" + id + "\">" + (value.empty() ? "–" : value) + "</dd>\n";
}

std::string TokenText(const DeviceState& state) {
  if (state.token == Token::kValid) return "valid until " + When(state.tokenUntil);
  if (state.token == Token::kExpired) return "expired; it is renewed when it is next needed";
  return state.token == Token::kNone ? "none" : "not readable";
}

std::string AccountSection(const DeviceState& state, const std::string& token) {
  if (!state.signedIn) {
    return "<section aria-labelledby=\"account\"><h2 id=\"account\">Account</h2>"
           "<p>This device is not signed in. You will be led to the account centre&#39;s own page: your password is "
           "typed there, and never seen by this device.</p>" +
           Form("/sign-in", token, "sign-in", "Sign in") + "</section>\n";
  }
  const std::int64_t age = std::time(nullptr) - state.lastQuery;
  const std::string profile = state.lastQuery <= 0 ? "not fetched yet" : Age(age < 0 ? 0 : age) + " old";
  return "<section aria-labelledby=\"account\"><h2 id=\"account\">Account</h2><dl>\n" +
         Row("E-mail", "account-email", Escaped(state.email)) + Row("Name", "account-name", Escaped(state.name)) +
         Row("User id", "account-id", Escaped(state.userId)) + Row("Profile", "profile-age", profile) +
         "</dl><form class=\"actions\" method=\"get\" action=\"/sign-out\"><button class=\"quiet\" id=\"sign-out\">"
         "Sign out</button></form></section>\n";
}

}  // namespace

std::string IndexPage(const DeviceState& state, const Notice::Text& notice, const std::string& formToken) {
  const std::string job = state.jobLine.empty() ? "none" : "<code>" + Escaped(state.jobLine) + "</code>";
  const std::string next = state.nextRun ? When(state.nextRun) : state.jobLine.empty() ? "" : "see the schedule";
  return Page("Device account",
              Alert(notice.words, notice.offerLocalSignOut && state.signedIn ? LocalSignOut(formToken) : "") +
                  Alert(state.problem) + AccountSection(state, formToken) +
                  "<section aria-labelledby=\"device\"><h2 id=\"device\">On this device</h2><dl>\n" +
                  Row("Access token", "token-state", TokenText(state)) + Row("Report job", "report-job", job) +
                  Row("Next report", "next-report", next) +
                  "</dl></section>\n<section aria-labelledby=\"hosts\"><h2 id=\"hosts\">Hosts</h2><dl>\n" +
                  Row("Account", "account-host", Escaped(state.accountHost)) +
                  Row("Identity", "identity-host", Escaped(state.identityHost)) +
                  Row("Payment", "payment-host", Escaped(state.paymentHost)) + "</dl></section>\n");
}

std::string SignOutPage(const DeviceState& state, const std::string& formToken) {
  return Page("Sign out?", "<section><p>The account <strong>" + Escaped(state.email) +
                               "</strong>, its tokens and the scheduled report are removed from this device. The "
                               "account centre is told.</p><div class=\"actions\">" +
                               Form("/sign-out", formToken, "sign-out-confirm", "Sign out") +
                               "<a class=\"button quiet\" href=\"/\">Keep the account</a></div></section>\n");
}

std::string MessagePage(const std::string& title, const std::string& words) {
  return Page(title, Alert(words) + "<p><a class=\"button\" href=\"/\">Back to the device</a></p>\n");
}

std::string ContentPolicy(const DeviceState& state) {
  unsigned char digest[SHA256_DIGEST_LENGTH], text[64];
  SHA256(reinterpret_cast<const unsigned char*>(kStyle.data()), kStyle.size(), digest);
  EVP_EncodeBlock(text, digest, sizeof digest);
  std::string forms = " 'self'";
  for (const std::string& host : {state.accountHost, state.identityHost}) {
    const bool plain = std::all_of(host.begin(), host.end(),
                                   [](unsigned char c) { return std::isalnum(c) || std::strchr(".:/-", c); });
    if (!host.empty() && plain) forms += " " + host;
  }
  return "default-src 'none'; style-src 'sha256-" + std::string(reinterpret_cast<const char*>(text)) +
         "'; form-action" + forms + "; base-uri 'none'; frame-ancestors 'none'";
}

}  // namespace console
