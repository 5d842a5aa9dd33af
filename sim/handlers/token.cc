// "/oauth2/token" of the identity host: tokens against a code or a refresh token. Refusals are 400 with {"error"}; what
// the client put together wrongly is a complaint too, a code or token that is no longer good is not.
#include <algorithm>
#include <cctype>

#include "sim/handlers/form_request.h"
#include "sim/handlers/routes.h"
#include "sim/json_text.h"
#include "sim/token_answer.h"

namespace kivosim {
namespace {

const Pairs kNotStored = {{"Cache-Control", "no-store"}, {"Pragma", "no-cache"}};

Response Refuse(const std::string& error, const std::string& description) {
  Json::Value answer;
  answer["error"] = error;
  answer["error_description"] = description;
  return {400, JsonText(answer), "application/json", kNotStored};
}

Reply RefuseMalformed(const std::string& error, const std::string& problem) {
  return {Refuse(error, problem), problem};
}

std::string CheckVerifier(const std::string& verifier) {
  const auto isAllowed = [](unsigned char c) {
    return std::isalnum(c) || (c && std::string("-._~").find(static_cast<char>(c)) != std::string::npos);
  };
  const bool good =
      verifier.size() >= 43 && verifier.size() <= 128 && std::all_of(verifier.begin(), verifier.end(), isAllowed);
  return good ? "" : "\"code_verifier\" is not of 43 to 128 unreserved characters";
}

Response Grant(const Request& request, const TokenOutcome& outcome, CloudState& state) {
  if (!outcome.refusal.empty()) return Refuse("invalid_grant", outcome.refusal);
  const std::optional<Account> account = state.Find(outcome.tokens.to.userId);
  if (!account) return Refuse("invalid_grant", "the account is gone");
  const Json::Value answer = TokenAnswer(outcome.tokens, *account, state.Signer(), request.host, WallClock());
  return {200, JsonText(answer), "application/json", kNotStored};
}

Reply ByCode(const Request& request, CloudState& state) {
  std::string problem =
      CheckForm(request, {{"grant_type"}, {"client_id"}, {"redirect_uri"}, {"code"}, {"code_verifier"}});
  if (problem.empty()) problem = CheckClientHeader(request, request.Param("client_id"));
  if (problem.empty()) problem = CheckVerifier(request.Param("code_verifier"));
  if (!problem.empty()) return RefuseMalformed("invalid_request", problem);
  if (!state.OAuth().Client(request.Param("client_id"))) return RefuseMalformed("invalid_client", "unknown client");
  const CodeUse use{request.Param("client_id"), request.Param("redirect_uri"), request.Param("code"),
                    request.Param("code_verifier")};
  return {Grant(request, state.OAuth().ExchangeCode(use), state)};
}

Reply ByRefreshToken(const Request& request, CloudState& state) {
  std::string problem = CheckForm(request, {{"grant_type"}, {"refresh_token"}, {"client_id"}});
  if (problem.empty()) problem = CheckClientHeader(request, request.Param("client_id"));
  if (!problem.empty()) return RefuseMalformed("invalid_request", problem);
  const std::string clientId = request.Param("client_id");
  if (!state.OAuth().Client(clientId)) return RefuseMalformed("invalid_client", "unknown client");
  return {Grant(request, state.OAuth().Refresh(request.Param("refresh_token"), clientId), state)};
}

Reply ByType(const Request& request, const std::string& type, CloudState& state) {
  if (type == "authorization_code") return ByCode(request, state);
  if (type == "refresh_token") return ByRefreshToken(request, state);
  if (type.empty()) return RefuseMalformed("invalid_request", "no \"grant_type\"");
  return RefuseMalformed("unsupported_grant_type", "\"grant_type\" is \"" + type + "\"");
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string type = request.Param("grant_type");
  const Reply reply = ByType(request, type, state);
  state.OAuth().Count(type, reply.response.status == 200);
  return reply;
}

}  // namespace

void AddToken(std::vector<Route>& routes) { routes.push_back({HostFamily::kIdentity, "/oauth2/token", Answer}); }

}  // namespace kivosim
