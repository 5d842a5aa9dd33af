// Where the identity host sends a browser back to on the account host. A device has no web server that a browser could
// reach, so the code is shown to be copied; a program on the browser's own machine gets it handed on, when it asked for
// that by a state of the form RANDOM.PORT. The code goes to the loopback interface then and nowhere else.
#include <algorithm>
#include <cctype>
#include <optional>

#include "sim/form.h"
#include "sim/handlers/identity_pages.h"
#include "sim/handlers/routes.h"

namespace kivosim {
namespace {

/// The value of `name`, or "" when there is none or more than one.
std::string OnlyValue(const Pairs& query, const std::string& name) {
  const auto isIt = [&](const auto& pair) { return pair.first == name; };
  if (std::count_if(query.begin(), query.end(), isIt) != 1) return "";
  return std::find_if(query.begin(), query.end(), isIt)->second;
}

bool IsPort(const std::string& text) {
  const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
  return !text.empty() && text.size() <= 5 && text[0] != '0' && std::all_of(text.begin(), text.end(), isDigit) &&
         std::stoi(text) <= 65535;
}

/// The port that a state of the form RANDOM.PORT names, as text.
std::optional<std::string> PortOf(const std::string& state) {
  const std::size_t dot = state.find('.');
  if (dot == 0 || dot == std::string::npos || !IsPort(state.substr(dot + 1))) return std::nullopt;
  const auto isRandom = [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_'; };
  if (!std::all_of(state.begin(), state.begin() + static_cast<std::ptrdiff_t>(dot), isRandom)) return std::nullopt;
  return state.substr(dot + 1);
}

Response HandOn(const std::string& port, const Pairs& parameters) {
  const std::string location = "http://127.0.0.1:" + port + "/callback?" + FormText(parameters);
  return {303, "", "", {{"Location", location}, {"Cache-Control", "no-store"}, {"Referrer-Policy", "no-referrer"}}};
}

Reply Answer(const Request& request, CloudState&) {
  if (request.method != "GET") return {ErrorPage("method is " + request.method), "method is " + request.method};
  const Pairs query = ParseBrowserForm(request.target.substr(std::min(request.path.size() + 1, request.target.size())));
  const std::string code = OnlyValue(query, "code"), error = OnlyValue(query, "error");
  const std::string state = OnlyValue(query, "state");
  const std::optional<std::string> port = PortOf(state);
  if (code.empty() == error.empty()) return {NoCodePage(400, "", "")};
  if (port)
    return {HandOn(*port, {code.empty() ? std::pair("error", error) : std::pair("code", code), {"state", state}})};
  return {code.empty() ? NoCodePage(200, error, OnlyValue(query, "error_description")) : CodePage(code)};
}

}  // namespace

void AddCallbacks(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/device/login/callback", Answer});
  routes.push_back({HostFamily::kAccount, "/device/register/callback", Answer});
  const auto signedOut = [](const Request&, CloudState&) { return Reply{SignedOutPage()}; };
  routes.push_back({HostFamily::kAccount, "/device/logout/callback", signedOut});
}

}  // namespace kivosim
