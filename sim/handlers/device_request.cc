// Strict checking of device requests. Stricter than a real server on purpose: the order of the parameters and their
// spelling are part of what a device promises, and nobody else looks at them.
#include "sim/handlers/device_request.h"

#include <utility>

#include "sim/device_token.h"
#include "sim/form.h"

namespace kivosim {
namespace {

std::string CheckEnvelope(const Request& request) {
  if (request.method != "POST") return "method is " + request.method;
  if (request.target != request.path) return "query text in the URL";
  const std::string type = request.Header("Content-Type");
  if (type != "application/x-www-form-urlencoded") return "content type is \"" + type + "\"";
  return "";
}

/// Walks the pairs beside the expected names; only optional ones may be left out.
std::string CheckParameters(const Pairs& pairs, const std::vector<Parameter>& expected) {
  std::size_t next = 0;
  for (const Parameter& parameter : expected) {
    const bool there = next < pairs.size() && pairs[next].first == parameter.name;
    if (!there && parameter.kind == Parameter::kOptional) continue;
    if (!there) {
      const std::string found = next < pairs.size() ? "\"" + pairs[next].first + "\"" : "the end";
      return "expected \"" + parameter.name + "\", found " + found;
    }
    const std::string& value = pairs[next++].second;
    if (parameter.kind == Parameter::kFilled && value.empty()) return "\"" + parameter.name + "\" is empty";
    if (!parameter.value.empty() && value != parameter.value) return "\"" + parameter.name + "\" is \"" + value + "\"";
  }
  return next < pairs.size() ? "unexpected \"" + pairs[next].first + "\"" : "";
}

std::string CheckForm(const Request& request, const std::vector<Parameter>& expected) {
  Pairs pairs;
  std::string problem = CheckEnvelope(request);
  if (problem.empty()) problem = ParseForm(request.body, pairs);
  if (problem.empty()) problem = CheckParameters(pairs, expected);
  if (problem.empty() && request.HasParam("serial_no") && request.Param("serial_no") != request.Param("lu_sn"))
    problem = "\"serial_no\" is not \"lu_sn\"";
  return problem;
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
    const std::string problem = CheckForm(request, expected);
    if (!problem.empty()) return {CodeAnswer("badparam"), problem};
    if (!IsTokenRight(request)) return {CodeAnswer("badauth"), "\"lu_token\" is wrong"};
    return {answer(request, state)};
  };
}

Response CodeAnswer(const std::string& code) { return {code == "good" ? 200 : 400, "{\"code\":\"" + code + "\"}"}; }

}  // namespace kivosim
