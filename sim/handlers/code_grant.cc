// "/migration/api/v1/device/core/authorization_code/grant" of the account host: a code for the token endpoint against
// an auth key, so that a device signs in anew without its owner. 401 says that the auth key is not good (any more).
#include "sim/handlers/authorization_request.h"
#include "sim/handlers/device_request.h"
#include "sim/handlers/form_request.h"
#include "sim/handlers/grant_request.h"

namespace kivosim {
namespace {

std::string CheckGrant(const Request& request, const CloudState& state) {
  std::string problem = CheckForm(request, {{"client_id"},
                                            {"redirect_url"},
                                            {"state"},
                                            {"code_challenge"},
                                            {"auth_key"},
                                            {"scopes[]", Parameter::kRepeated}});
  if (problem.empty()) problem = CheckClientHeader(request, request.Param("client_id"));
  if (problem.empty() && request.Param("code_challenge").size() != 43)
    problem = "\"code_challenge\" is not of 43 characters";
  return problem.empty() ? CheckRedirect(request, state) : problem;
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string problem = CheckGrant(request, state);
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  const auto holder = state.FindByAuthKey(request.Param("auth_key"));
  if (!holder) return {{401, "{\"code\":\"badauth\"}"}};
  const auto& [account, serial] = *holder;
  const std::string scope = ScopeOf(request), named = SerialOfScope(scope);
  if (!named.empty() && named != serial) return {CodeAnswer("badparam"), "the scope names device \"" + named + "\""};
  if (!account.refusal.empty()) return {CodeAnswer(account.refusal)};
  return {GrantCode({account.userId, request.Param("client_id"), serial, scope}, request, state)};
}

}  // namespace

void AddCodeGrant(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/migration/api/v1/device/core/authorization_code/grant", Answer});
}

}  // namespace kivosim
