// The pages' words. Their forms have no address of their own: they go to the one in the browser's address bar, whose
// query is the authorization request.
#include "sim/handlers/identity_pages.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

#include "sim/handlers/html.h"

namespace kivosim {
namespace {

std::string Paragraph(const std::string& html, const std::string& attributes = "") {
  return "<p" + attributes + ">" + html + "</p>\n";
}

std::string Strong(const std::string& text) { return "<strong>" + Escaped(text) + "</strong>"; }

std::string Alert(const std::string& text) { return Paragraph(Escaped(text), " role=\"alert\" id=\"problem\""); }

std::string Hidden(const std::string& name, const std::string& value) {
  return "<input type=\"hidden\" name=\"" + name + "\" value=\"" + Escaped(value) + "\">\n";
}

/// Scheme and host of an address, or "" where it has something that a policy could take for its own.
std::string OriginOf(const std::string& uri) {
  const std::size_t host = uri.find("://");
  if (host == std::string::npos) return "";
  const std::string origin = uri.substr(0, uri.find_first_of("/?#", host + 3));
  const auto isPlain = [](unsigned char c) { return std::isalnum(c) || (c && std::strchr("+-.:/[]", c)); };
  return std::all_of(origin.begin(), origin.end(), isPlain) ? origin : "";
}

/// Where the answer to a form may lead: to the client, which may hand it on to a program on the person's own machine.
std::string FormTargets(const AuthorizationRequest& request) {
  return OriginOf(request.redirectUri) + " http://127.0.0.1:*";
}

std::string Field(const std::string& name, const std::string& label, const std::string& attributes,
                  const SignInForm& form) {
  const std::string invalid = form.problem.empty() ? "" : " aria-invalid=\"true\" aria-describedby=\"problem\"";
  return "<label for=\"" + name + "\">" + label + "</label>\n<input id=\"" + name + "\" name=\"" + name + "\" " +
         attributes + invalid + " required>\n";
}

std::string Buttons(const std::string& yes, const std::string& no) {
  return "<div class=\"actions\">\n" + yes +
         "<button class=\"second\" name=\"decision\" value=\"deny\" formnovalidate>" + no + "</button>\n</div>\n";
}

/// What one word of a scope allows; "" for the device's serial number, which is told by itself.
std::string InWords(const std::string& word) {
  const std::string mac = "device.mac:";
  if (word == "openid") return "know that it is you";
  if (word == "email") return "see your e-mail address";
  if (word == "profile") return "see your name and settings";
  if (word == "offline_access") return "stay signed in until you sign out";
  if (word == "registration") return "create your account";
  if (word.compare(0, mac.size(), mac) == 0)
    return "know the device's network address, " + Strong(word.substr(mac.size()));
  return SerialOfScope(word).empty() ? "use " + Strong(word) : "";
}

std::string Allowances(const std::string& scope) {
  std::string list;
  std::istringstream words(scope);
  for (std::string word; words >> word;) {
    const std::string text = InWords(word);
    if (!text.empty()) list += "<li>" + text + "</li>\n";
  }
  return "<ul>\n" + list + "</ul>\n";
}

std::string Entry(const std::string& name, const std::string& html) {
  return "<dt>" + name + "</dt>\n<dd>" + html + "</dd>\n";
}

}  // namespace

Response SignInPage(const AuthorizationRequest& request, const SignInForm& form) {
  const std::string title = form.registration ? "Create an account" : "Sign in";
  const std::string serial = SerialOfScope(request.scope);
  std::string content = form.problem.empty() ? "" : Alert(form.problem);
  content += Paragraph(Strong(request.clientId) + (serial.empty() ? "" : " on the device " + Strong(serial)) +
                       (form.registration ? " asks you to create an account." : " asks you to sign in."));
  const std::string focus = " autofocus";
  const bool known = !form.email.empty();
  content += "<form method=\"post\">\n" + Hidden("ask", "consent");
  content += Field(
      "email", "E-mail",
      "type=\"email\" autocomplete=\"username\" value=\"" + Escaped(form.email) + "\"" + (known ? "" : focus), form);
  content += Field("password", "Password",
                   std::string("type=\"password\" autocomplete=\"") +
                       (form.registration ? "new-password" : "current-password") + "\"" + (known ? focus : ""),
                   form);
  content += Buttons("<button id=\"go\">" + title + "</button>\n", "Cancel") + "</form>\n";
  return HtmlPage(form.status, title, content, FormTargets(request));
}

Response ConsentPage(const AuthorizationRequest& request, const Account& account, const std::string& ticket) {
  const std::string serial = SerialOfScope(request.scope);
  std::string content = Paragraph(Strong(request.clientId) + " asks to use your account.");
  content += "<dl>\n" + Entry("Account", Escaped(account.fullName) + " (" + Escaped(account.email) + ")");
  if (!serial.empty()) content += Entry("On the device", Escaped(serial));
  content += Entry("It could then", Allowances(request.scope)) + "</dl>\n";
  content += "<form method=\"post\">\n" + Hidden("ticket", ticket) +
             Buttons("<button name=\"decision\" value=\"allow\">Allow</button>\n", "Refuse") + "</form>\n";
  return HtmlPage(200, "Allow access?", content, FormTargets(request));
}

Response ErrorPage(const std::string& problem) {
  return HtmlPage(400, "This sign-in cannot go on", Alert(problem) + Paragraph("Start again on the device."));
}

Response SignedOutPage() {
  return HtmlPage(200, "Signed out", Paragraph("You are signed out in this browser. You can close this page."));
}

Response CodePage(const std::string& code) {
  return HtmlPage(200, "Almost done",
                  Paragraph("To finish, paste this into the device:") + Paragraph(Escaped(code), " id=\"code\"") +
                      Paragraph("It is good for ten minutes and for one use. Show it to nobody else."));
}

Response NoCodePage(int status, const std::string& error, const std::string& description) {
  const std::string why = error == "access_denied"             ? "Access was refused."
                          : error == "temporarily_unavailable" ? "The account centre is busy. Try again in a while."
                          : error.empty()                      ? "No code came to this page."
                                                               : "The device's request was not in order.";
  const std::string detail = error.empty() ? "" : error + (description.empty() ? "" : ": " + description);
  return HtmlPage(status, "Not signed in",
                  Alert(why) + (detail.empty() ? "" : Paragraph("Details: " + Escaped(detail))) +
                      Paragraph("Nothing has changed. To sign in, start again on the device."));
}

}  // namespace kivosim
