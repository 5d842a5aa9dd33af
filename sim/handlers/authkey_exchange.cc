// "/oauth2/api/v1/device/core/authkey/exchange" of the account host: an access token against the user id and the auth
// key of the device that the token's scope names. The only account path that wants no X-Client-ID.
#include "sim/handlers/device_request.h"
#include "sim/handlers/form_request.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

constexpr char kBearer[] = "Bearer ";

std::string CheckExchange(const Request& request) {
  if (request.method != "POST") return "method is " + request.method;
  if (request.target != request.path) return "query text in the URL";
  if (!request.body.empty()) return "there is a body";
  if (CountHeader(request, "X-Client-ID") > 0) return "header X-Client-ID must not be there";
  if (CountHeader(request, "Authorization") != 1) return "header Authorization must be there once";
  if (request.Header("Authorization").compare(0, sizeof kBearer - 1, kBearer) != 0)
    return "header Authorization is no bearer token";
  return "";
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string problem = CheckExchange(request);
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  const std::string token = request.Header("Authorization").substr(sizeof kBearer - 1);
  const std::optional<Grantee> grantee = state.OAuth().FindByAccessToken(token);
  const std::optional<Account> account = grantee ? state.Find(grantee->userId) : std::nullopt;
  if (!account) return {{401, "{\"code\":\"badauth\"}"}};
  if (grantee->serial.empty()) return {CodeAnswer("badparam"), "the token's scope names no device"};
  if (!account->refusal.empty()) return {CodeAnswer(account->refusal)};
  Json::Value answer;
  answer["user_id"] = account->userId;
  answer["auth_key"] = state.AuthKey(account->userId, grantee->serial);
  return {{200, JsonText(answer)}};
}

}  // namespace

void AddAuthKeyExchange(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/oauth2/api/v1/device/core/authkey/exchange", Answer});
}

}  // namespace kivosim
