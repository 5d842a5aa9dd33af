// Strict checking of parameters. Stricter than a real server on purpose: the order of the parameters and their
// spelling are part of what a device promises, and nobody else looks at them.
#include "sim/handlers/form_request.h"

#include <strings.h>

#include <algorithm>

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

std::string CheckValue(const Parameter& parameter, const std::string& value) {
  const bool filled = parameter.kind == Parameter::kFilled || parameter.kind == Parameter::kRepeated;
  if (filled && value.empty()) return "\"" + parameter.name + "\" is empty";
  const bool wrong =
      (!parameter.value.empty() && value != parameter.value) || (parameter.isRight && !parameter.isRight(value));
  return wrong ? "\"" + parameter.name + "\" is \"" + value + "\"" : "";
}

/// Walks the pairs beside the expected names; only optional ones may be left out.
std::string CheckParameters(const Pairs& pairs, const std::vector<Parameter>& expected) {
  std::size_t next = 0;
  const auto there = [&](const Parameter& p) { return next < pairs.size() && pairs[next].first == p.name; };
  for (const Parameter& parameter : expected) {
    if (!there(parameter) && parameter.kind == Parameter::kOptional) continue;
    if (!there(parameter)) {
      const std::string found = next < pairs.size() ? "\"" + pairs[next].first + "\"" : "the end";
      return "expected \"" + parameter.name + "\", found " + found;
    }
    do {
      const std::string problem = CheckValue(parameter, pairs[next++].second);
      if (!problem.empty()) return problem;
    } while (parameter.kind == Parameter::kRepeated && there(parameter));
  }
  return next < pairs.size() ? "unexpected \"" + pairs[next].first + "\"" : "";
}

}  // namespace

std::string CheckForm(const Request& request, const std::vector<Parameter>& expected) {
  Pairs pairs;
  std::string problem = CheckEnvelope(request);
  if (problem.empty()) problem = ParseForm(request.body, pairs);
  return problem.empty() ? CheckParameters(pairs, expected) : problem;
}

std::string CheckQuery(const Request& request, const std::vector<Parameter>& expected) {
  if (request.method != "GET") return "method is " + request.method;
  if (!request.body.empty()) return "there is a body";
  Pairs pairs;
  const std::string text = request.target.substr(std::min(request.path.size() + 1, request.target.size()));
  const std::string problem = ParseForm(text, pairs);
  return problem.empty() ? CheckParameters(pairs, expected) : problem;
}

std::size_t CountHeader(const Request& request, const std::string& name) {
  return static_cast<std::size_t>(
      std::count_if(request.headers.begin(), request.headers.end(),
                    [&](const auto& header) { return strcasecmp(header.first.c_str(), name.c_str()) == 0; }));
}

std::string CheckClientHeader(const Request& request, const std::string& clientId) {
  const std::size_t count = CountHeader(request, "X-Client-ID");
  if (count == 0) return "no header X-Client-ID";
  if (count > 1) return "more than one header X-Client-ID";
  const std::string value = request.Header("X-Client-ID");
  return value == clientId ? "" : "header X-Client-ID is \"" + value + "\"";
}

}  // namespace kivosim
