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

Handler DeviceHandler(std::vector<Parameter> parameters, std::function<Response(const Request&, CloudState&)> answer) {
  std::vector<Parameter> expected = {
      {"lu_sn"}, {"lu_token"}, {"kivoID", Parameter::kOptional}, {"kivoPW", Parameter::kOptional}};
  expected.insert(expected.end(), parameters.begin(), parameters.end());
  return [expected, answer = std::move(answer)](const Request& request, CloudState& state) -> Reply {
    const std::string problem = CheckDeviceForm(request, expected);
    if (!problem.empty()) return {CodeAnswer("badparam"), problem};
    if (!IsTokenRight(request)) return {CodeAnswer("badauth"), "\"lu_token\" is wrong"};
    return {answer(request, state)};
  };
}

Response CodeAnswer(const std::string& code) { return {code == "good" ? 200 : 400, "{\"code\":\"" + code + "\"}"}; }

}  // namespace kivosim
