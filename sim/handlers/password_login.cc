// "device/api/password_login" of the account host: e-mail and password against an id and an auth key.
#include "sim/handlers/device_request.h"
#include "sim/handlers/sign_in.h"

namespace kivosim {
namespace {

Response Answer(const Request& request, CloudState& state) {
  const std::string refusal = CheckDevice(request, state);
  if (!refusal.empty()) return CodeAnswer(refusal);
  const std::optional<Account> account = state.Find(request.Param("email"));
  if (!account || account->email != request.Param("email")) return CodeAnswer("account_not_found");
  if (account->password != request.Param("passwd")) return CodeAnswer("badauth");
  return SignIn(*account, request.Param("lu_sn"), state);
}

}  // namespace

void AddPasswordLogin(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/device/api/password_login",
                    DeviceHandler({{"type", Parameter::kFilled, "acnt_pw_apikey"},
                                   {"email", Parameter::kMayBeEmpty},
                                   {"passwd", Parameter::kMayBeEmpty},
                                   {"serial_no"},
                                   {"api_key"},
                                   {"mac"}},
                                  Answer)});
}

}  // namespace kivosim
