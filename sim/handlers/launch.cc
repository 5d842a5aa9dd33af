// "good/user/launch" of the account host: an access token of the identity host against an id and an auth key.
#include "sim/handlers/device_request.h"
#include "sim/handlers/sign_in.h"

namespace kivosim {
namespace {

Response Answer(const Request& request, CloudState& state) {
  const std::string refusal = CheckDevice(request, state);
  if (!refusal.empty()) return CodeAnswer(refusal);
  const std::optional<Account> account = state.FindByAccessToken(request.Param("access_token"));
  return account ? SignIn(*account, request.Param("lu_sn"), state) : CodeAnswer("badauth");
}

}  // namespace

void AddLaunch(std::vector<Route>& routes) {
  routes.push_back(
      {HostFamily::kAccount, "/good/user/launch",
       DeviceHandler(
           {{"language"}, {"access_token", Parameter::kMayBeEmpty}, {"timezone"}, {"api_key"}, {"mac"}, {"serial_no"}},
           Answer)});
}

}  // namespace kivosim
