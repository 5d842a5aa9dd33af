// One column, in the reader's own font and size, with no script and nothing fetched from anywhere.
#include "sim/handlers/html.h"

namespace kivosim {
namespace {

const char kStyle[] = R"(
:root { color-scheme: light; }
* { box-sizing: border-box; }
body { margin: 0; background: #eef1f5; color: #1b2430; font: 1rem/1.5 system-ui, sans-serif; }
main { max-width: 30rem; margin: 2rem auto; padding: 1.75rem; background: #fff; border: 1px solid #cbd3dd;
  border-radius: .75rem; overflow-wrap: anywhere; }
h1 { margin: 0 0 .75rem; font-size: 1.5rem; line-height: 1.25; }
p, ul, dl { margin: 0 0 1rem; }
ul { padding-left: 1.25rem; }
dt { color: #4b5866; font-size: .875rem; }
dd { margin: 0 0 .625rem; font-weight: 600; }
dd ul { margin: .125rem 0 0; font-weight: 400; }
label { display: block; margin-bottom: .25rem; font-weight: 600; }
input { width: 100%; min-height: 2.75rem; margin-bottom: 1rem; padding: .5rem .75rem; font: inherit; color: inherit;
  background: #fff; border: 1px solid #66727f; border-radius: .375rem; }
.actions { display: flex; flex-wrap: wrap; gap: .75rem; margin-top: .5rem; }
button { flex: 1 1 9rem; min-height: 2.75rem; padding: .5rem 1rem; font: inherit; font-weight: 600; cursor: pointer;
  border: 1px solid #14508c; border-radius: .375rem; background: #14508c; color: #fff; }
button.second { background: #fff; color: #14508c; }
:focus-visible { outline: 3px solid #b35900; outline-offset: 2px; }
[role=alert] { padding: .75rem 1rem; border-left: .25rem solid #b3261e; background: #fdecea; color: #8c1d18; }
#code { padding: 1rem; border: 1px dashed #66727f; border-radius: .375rem; background: #f6f8fa;
  font: 600 1.5rem/1.4 ui-monospace, monospace; user-select: all; -webkit-user-select: all;
  word-break: break-all; }
@media (max-width: 34rem) { main { margin: 0; min-height: 100vh; border: 0; border-radius: 0; padding: 1.25rem; } }
)";

}  // namespace

std::string Escaped(const std::string& text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

Response HtmlPage(int status, const std::string& title, const std::string& content, const std::string& formTargets) {
  const std::string heading = Escaped(title);
  const std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>" +
      heading + " - Kivo Center</title>\n<style>" + kStyle + "</style>\n</head>\n<body>\n<main>\n<h1>" + heading +
      "</h1>\n" + content + "</main>\n</body>\n</html>\n";
  const std::string policy =
      "default-src 'none'; style-src 'unsafe-inline'; base-uri 'none'; frame-ancestors 'none'; "
      "form-action 'self'" +
      (formTargets.empty() ? "" : " " + formTargets);
  return {status,
          html,
          "text/html; charset=utf-8",
          {{"Cache-Control", "no-store"},
           {"Content-Security-Policy", policy},
           {"X-Frame-Options", "DENY"},
           {"X-Content-Type-Options", "nosniff"},
           {"Referrer-Policy", "no-referrer"}}};
}

}  // namespace kivosim
