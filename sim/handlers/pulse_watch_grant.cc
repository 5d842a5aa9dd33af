// "/oauth2/api/v1/device/pulsewatch/authorization_code/grant" of the account host: a code for a service that watches
// the device, against the access token of the package "pulsewatch". Any client and any address may be named. The code
// is without a challenge, so the token endpoint here takes it from nobody.
#include "sim/handlers/device_request.h"
#include "sim/handlers/form_request.h"
#include "sim/handlers/grant_request.h"

namespace kivosim {
namespace {

Reply Answer(const Request& request, CloudState& state) {
  std::string problem =
      CheckForm(request, {{"client_id"}, {"redirect_url"}, {"state", Parameter::kMayBeEmpty}, {"scopes[]"}});
  if (problem.empty()) problem = CheckClientHeader(request, request.Param("client_id"));
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  Grantee holder;
  if (const std::optional<Reply> refusal = RefuseBearer(request, state, "pulsewatch", holder)) return *refusal;
  return {GrantCode({holder.userId, request.Param("client_id"), holder.serial, ScopeOf(request)}, request, state)};
}

}  // namespace

void AddPulseWatchGrant(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/oauth2/api/v1/device/pulsewatch/authorization_code/grant", Answer});
}

}  // namespace kivosim
