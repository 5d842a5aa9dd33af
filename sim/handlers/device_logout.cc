// "/device/api/logout" of the account host: takes the device's auth key and revokes the families of its tokens. The
// verdict is in the body alone: refusals come with status 200 too.
#include "sim/handlers/form_request.h"
#include "sim/handlers/routes.h"

namespace kivosim {
namespace {

Response Verdict(const std::string& code) { return {200, "{\"code\":\"" + code + "\"}"}; }

std::string CheckLogout(const Request& request, const CloudState& state) {
  const std::string clientId = request.Header("X-Client-ID");
  std::string problem = CheckForm(request, {{"serial_no"}, {"auth_key"}, {"access_token", Parameter::kOptional}});
  if (problem.empty()) problem = CheckClientHeader(request, clientId);
  if (problem.empty() && !state.OAuth().Client(clientId)) problem = "unknown client \"" + clientId + "\"";
  return problem;
}

/// The token says which session is meant; whether it is still good does not matter to somebody who is leaving.
bool IsTokenOf(const Account& account, const std::string& token, const CloudState& state) {
  const std::optional<Grantee> grantee = state.OAuth().FindIssued(token);
  return grantee && grantee->userId == account.userId;
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string problem = CheckLogout(request, state);
  if (!problem.empty()) return {Verdict("badparam"), problem};
  const std::string serial = request.Param("serial_no"), key = request.Param("auth_key");
  const auto holder = state.FindByAuthKey(key);
  if (!holder || holder->second != serial) return {Verdict("badauth")};
  const Account& account = holder->first;
  if (request.HasParam("access_token") && !IsTokenOf(account, request.Param("access_token"), state))
    return {Verdict("badauth")};
  if (!account.refusal.empty()) return {Verdict(account.refusal)};
  if (!state.RemoveAuthKey(account.userId, serial, key)) return {Verdict("badauth")};
  state.OAuth().Revoke(
      [&](const TokenFamily& family) { return family.userId == account.userId && family.serial == serial; });
  return {Verdict("good")};
}

}  // namespace

void AddDeviceLogout(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/device/api/logout", Answer});
}

}  // namespace kivosim
