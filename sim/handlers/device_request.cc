// Checking of device requests: the form, then what its values say of the device.
#include "sim/handlers/device_request.h"

#include <utility>

#include "sim/device_token.h"

namespace kivosim {
namespace {

std::string CheckDeviceForm(const Request& request, const std::vector<Parameter>& expected) {
  const std::string problem = CheckForm(request, expected);
  const bool differs = request.HasParam("serial_no") && request.Param("serial_no") != request.Param("lu_sn");
  return problem.empty() && differs ? "\"serial_no\" is not \"lu_sn\"" : problem;
}

bool IsTokenRight(const Request& request) {
  return request.Param("lu_token") ==
         DeviceToken(request.Param("lu_sn"), request.Param("kivoID"), request.Param("kivoPW"));
}

}  // namespace

Handler DeviceHandler(std::vector<Parameter> parameters, Handler answer, CodeWriter refuse) {
  std::vector<Parameter> expected = {
      {"lu_sn"}, {"lu_token"}, {"kivoID", Parameter::kOptional}, {"kivoPW", Parameter::kOptional}};
  expected.insert(expected.end(), parameters.begin(), parameters.end());
  return [expected, answer = std::move(answer), refuse](const Request& request, CloudState& state) -> Reply {
    const std::string problem = CheckDeviceForm(request, expected);
    if (!problem.empty()) return {refuse("badparam"), problem};
    if (!IsTokenRight(request)) return {refuse("badauth"), "\"lu_token\" is wrong"};
    return answer(request, state);
  };
}

Response CodeAnswer(const std::string& code) { return {code == "good" ? 200 : 400, "{\"code\":\"" + code + "\"}"}; }

Response WordAnswer(const std::string& code) { return {code == "good" ? 200 : 400, code, "text/plain"}; }

std::string CheckHolder(const Request& request, const CloudState& state) {
  const std::optional<Account> account = state.Find(request.Param("id"));
  if (!account || account->userId != request.Param("id")) return "account_not_found";
  const auto key = account->authKeys.find(request.Param("lu_sn"));
  if (key == account->authKeys.end() || key->second != request.Param("auth_key")) return "badauth";
  return account->refusal;
}

bool IsFlag(const std::string& value) { return value == "true" || value == "false"; }

}  // namespace kivosim
