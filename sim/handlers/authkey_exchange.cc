// "/oauth2/api/v1/device/core/authkey/exchange" of the account host: an access token against the user id and the auth
// key of the device that the token's scope names. The only account path that wants no X-Client-ID.
#include "sim/handlers/device_request.h"
#include "sim/handlers/form_request.h"
#include "sim/handlers/grant_request.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

std::string CheckExchange(const Request& request) {
  if (request.method != "POST") return "method is " + request.method;
  if (request.target != request.path) return "query text in the URL";
  if (!request.body.empty()) return "there is a body";
  if (CountHeader(request, "X-Client-ID") > 0) return "header X-Client-ID must not be there";
  return CheckBearerHeader(request);
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string problem = CheckExchange(request);
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  Grantee holder;
  if (const std::optional<Reply> refusal = RefuseBearer(request, state, "", holder)) return *refusal;
  if (holder.serial.empty()) return {CodeAnswer("badparam"), "the token's scope names no device"};
  Json::Value answer;
  answer["user_id"] = holder.userId;
  answer["auth_key"] = state.AuthKey(holder.userId, holder.serial);
  return {{200, JsonText(answer)}};
}

}  // namespace

void AddAuthKeyExchange(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/oauth2/api/v1/device/core/authkey/exchange", Answer});
}

}  // namespace kivosim
