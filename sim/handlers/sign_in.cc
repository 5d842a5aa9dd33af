// Signing a device in. The auth key is issued here and nowhere else.
#include "sim/handlers/sign_in.h"

#include "sim/handlers/device_request.h"
#include "sim/json_text.h"

namespace kivosim {

std::string CheckDevice(const Request& request, CloudState& state) {
  const std::string serial = request.Param("lu_sn");
  if (state.IsMachineRefused(serial)) return "invalid_machine";
  return state.CheckApiKey(serial, request.Param("api_key"));
}

Response SignIn(const Account& account, const std::string& serial, CloudState& state) {
  if (!account.refusal.empty()) return CodeAnswer(account.refusal);
  Json::Value answer;
  answer["code"] = "good";
  answer["id"] = account.userId;
  answer["auth_key"] = state.AuthKey(account.userId, serial);
  answer["email"] = account.email;
  return {200, JsonText(answer)};
}

}  // namespace kivosim
