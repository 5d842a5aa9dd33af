// Bearer tokens and codes. A token of the wrong client is a mistake in the code that sent it; one that has expired is
// not, so only the first is complained of.
#include "sim/handlers/grant_request.h"

#include <algorithm>

#include "sim/handlers/device_request.h"
#include "sim/handlers/form_request.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

constexpr char kBearer[] = "Bearer ";
constexpr std::size_t kBearerSize = sizeof kBearer - 1;

}  // namespace

std::string CheckBearerHeader(const Request& request) {
  if (CountHeader(request, "Authorization") != 1) return "header Authorization must be there once";
  const bool isBearer = request.Header("Authorization").compare(0, kBearerSize, kBearer) == 0;
  return isBearer ? "" : "header Authorization is no bearer token";
}

std::optional<Reply> RefuseBearer(const Request& request, const CloudState& state, const std::string& package,
                                  Grantee& holder) {
  const std::string problem = CheckBearerHeader(request);
  if (!problem.empty()) return Reply{CodeAnswer("badparam"), problem};
  const Response badAuth{401, "{\"code\":\"badauth\"}"};
  const auto grantee = state.OAuth().FindByAccessToken(request.Header("Authorization").substr(kBearerSize));
  const std::optional<Account> account = grantee ? state.Find(grantee->userId) : std::nullopt;
  const std::optional<OAuthClient> client = account ? state.OAuth().Client(grantee->clientId) : std::nullopt;
  if (!client) return Reply{badAuth};
  if (client->package != package) return Reply{badAuth, "the token is one of client \"" + client->id + "\""};
  if (!account->refusal.empty()) return Reply{CodeAnswer(account->refusal)};
  holder = *grantee;
  return std::nullopt;
}

std::string CheckRedirect(const Request& request, const CloudState& state) {
  const std::optional<OAuthClient> client = state.OAuth().Client(request.Param("client_id"));
  if (!client) return "unknown client \"" + request.Param("client_id") + "\"";
  const std::string uri = request.Param("redirect_url");
  const auto& uris = client->redirectUris;
  const bool known = std::find(uris.begin(), uris.end(), uri) != uris.end();
  return known ? "" : "\"" + uri + "\" is no redirect URI of " + client->id;
}

std::string ScopeOf(const Request& request) {
  std::string scope;
  for (const auto& [name, value] : request.form)
    if (name == "scopes[]") scope += (scope.empty() ? "" : " ") + value;
  return scope;
}

Response GrantCode(const Grantee& to, const Request& request, CloudState& state) {
  Json::Value answer;
  answer["grant_code"] = state.OAuth().IssueCode({to, request.Param("redirect_url"), request.Param("code_challenge")});
  return {200, JsonText(answer)};
}

}  // namespace kivosim
