// Reading and refusing authorization requests.
#include "sim/handlers/authorization_request.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <sstream>

#include "sim/form.h"

namespace kivosim {
namespace {

const char* const kNames[] = {"response_type", "client_id", "redirect_uri",   "scope",
                              "audience",      "state",     "code_challenge", "code_challenge_method"};

struct Problem {
  std::string error, text;
};

std::string Value(const Pairs& query, const std::string& name) {
  const auto found = std::find_if(query.begin(), query.end(), [&](const auto& pair) { return pair.first == name; });
  return found == query.end() ? "" : found->second;
}

/// The value of `name` as it stands in the query text.
std::string RawValue(const std::string& query, const std::string& name) {
  const std::string text = "&" + query, wanted = "&" + name + "=";
  const std::size_t start = text.find(wanted);
  if (start == std::string::npos) return "";
  const std::size_t from = start + wanted.size();
  return text.substr(from, std::min(text.find('&', from), text.size()) - from);
}

std::string CheckNames(const Pairs& query) {
  for (const auto& [name, value] : query) {
    const std::string& present = name;
    const auto same = [&](const auto& pair) { return pair.first == present; };
    if (std::count_if(query.begin(), query.end(), same) > 1) return "\"" + name + "\" comes more than once";
    const auto isName = [&](const char* known) { return present == known; };
    if (std::none_of(std::begin(kNames), std::end(kNames), isName)) return "unexpected \"" + name + "\"";
  }
  for (const char* name : kNames)
    if (Value(query, name).empty()) return std::string("\"") + name + "\" is missing or empty";
  return "";
}

bool HasWord(const std::string& scope, const std::string& wanted) {
  std::istringstream words(scope);
  for (std::string word; words >> word;)
    if (word == wanted) return true;
  return false;
}

/// What may be told to the client itself.
Problem CheckParameters(const Pairs& query) {
  const std::string type = Value(query, "response_type"), method = Value(query, "code_challenge_method");
  if (!type.empty() && type != "code") return {"unsupported_response_type", "\"response_type\" is \"" + type + "\""};
  const std::string names = CheckNames(query);
  if (!names.empty()) return {"invalid_request", names};
  if (method != "S256") return {"invalid_request", "\"code_challenge_method\" is \"" + method + "\""};
  if (!IsS256(Value(query, "code_challenge"))) return {"invalid_request", "\"code_challenge\" is no S256 challenge"};
  if (!HasWord(Value(query, "scope"), "openid")) return {"invalid_scope", "\"scope\" is without \"openid\""};
  return {};
}

/// What leaves nobody to answer to.
std::string CheckReturn(const AuthorizationRequest& request, const TokenStore& oauth) {
  const std::optional<OAuthClient> client = oauth.Client(request.clientId);
  if (!client) return "unknown client \"" + request.clientId + "\"";
  const auto& uris = client->redirectUris;
  if (std::find(uris.begin(), uris.end(), request.redirectUri) == uris.end())
    return "\"" + request.redirectUri + "\" is no redirect_uri of " + request.clientId;
  return "";
}

}  // namespace

bool IsS256(const std::string& challenge) {
  const auto isDigit = [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_'; };
  return challenge.size() == 43 && std::all_of(challenge.begin(), challenge.end(), isDigit);
}

AuthorizationRequest ReadAuthorizationRequest(const Request& http, const TokenStore& oauth) {
  const std::string text = http.target.substr(std::min(http.path.size() + 1, http.target.size()));
  const Pairs query = ParseBrowserForm(text);
  AuthorizationRequest request{Value(query, "client_id"),
                               Value(query, "redirect_uri"),
                               Value(query, "scope"),
                               Value(query, "audience"),
                               Value(query, "code_challenge"),
                               RawValue(text, "state"),
                               "",
                               ""};
  request.problem = CheckReturn(request, oauth);
  if (!request.problem.empty()) return request;
  const Problem problem = CheckParameters(query);
  request.problem = problem.text;
  request.error = problem.error;
  return request;
}

std::string WithQuery(const std::string& uri, const std::string& query) {
  if (query.empty()) return uri;
  return uri + (uri.find('?') == std::string::npos ? "?" : "&") + query;
}

Response RedirectBack(const AuthorizationRequest& request, const Pairs& parameters) {
  std::string query = FormText(parameters);
  if (!request.state.empty()) query += "&state=" + request.state;
  return {303, "", "", {{"Location", WithQuery(request.redirectUri, query)}, {"Cache-Control", "no-store"}}};
}

std::string SerialOfScope(const std::string& scope) {
  constexpr const char* kPrefix = "device.sn:";
  std::istringstream words(scope);
  for (std::string word; words >> word;)
    if (word.compare(0, std::strlen(kPrefix), kPrefix) == 0) return word.substr(std::strlen(kPrefix));
  return "";
}

}  // namespace kivosim
