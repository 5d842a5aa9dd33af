// Checking of device requests: the form, then what its values say of the device.
#include "sim/handlers/device_request.h"

#include <utility>

#include "sim/device_token.h"

namespace kivosim {
namespace {

using Check = std::string (*)(const Request&, const std::vector<Parameter>&);

std::string CheckDeviceRequest(const Request& request, const std::vector<Parameter>& expected, Check check) {
  const std::string problem = check(request, expected);
  const bool differs = request.HasParam("serial_no") && request.Param("serial_no") != request.Param("lu_sn");
  return problem.empty() && differs ? "\"serial_no\" is not \"lu_sn\"" : problem;
}

bool IsTokenRight(const Request& request) {
  return request.Param("lu_token") ==
         DeviceToken(request.Param("lu_sn"), request.Param("kivoID"), request.Param("kivoPW"));
}

Handler Checked(Check check, const std::vector<Parameter>& parameters, Handler answer, CodeWriter refuse) {
  std::vector<Parameter> expected = {
      {"lu_sn"}, {"lu_token"}, {"kivoID", Parameter::kOptional}, {"kivoPW", Parameter::kOptional}};
  expected.insert(expected.end(), parameters.begin(), parameters.end());
  return [check, expected, answer = std::move(answer), refuse](const Request& request, CloudState& state) -> Reply {
    const std::string problem = CheckDeviceRequest(request, expected, check);
    if (!problem.empty()) return {refuse("badparam"), problem};
    if (!IsTokenRight(request)) return {refuse("badauth"), "\"lu_token\" is wrong"};
    return answer(request, state);
  };
}

}  // namespace

Handler DeviceHandler(std::vector<Parameter> parameters, Handler answer, CodeWriter refuse) {
  return Checked(CheckForm, parameters, std::move(answer), refuse);
}

Handler DeviceQueryHandler(std::vector<Parameter> parameters, Handler answer) {
  return Checked(CheckQuery, parameters, std::move(answer), CodeAnswer);
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
