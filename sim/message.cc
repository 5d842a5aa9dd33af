// Look-ups in a request. Header names compare without regard to case, parameter names byte for byte; the first match
// counts, so a caller that must know about repetitions walks the lists itself.
#include "sim/message.h"

#include <strings.h>

#include <algorithm>

namespace kivosim {
namespace {

const std::string* Find(const Pairs& pairs, const std::string& name) {
  const auto found = std::find_if(pairs.begin(), pairs.end(), [&](const auto& pair) { return pair.first == name; });
  return found == pairs.end() ? nullptr : &found->second;
}

const std::string* FindParam(const Request& request, const std::string& name) {
  const std::string* value = Find(request.form, name);
  return value ? value : Find(request.query, name);
}

}  // namespace

std::string Request::Header(const std::string& name) const {
  const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& header) {
    return strcasecmp(header.first.c_str(), name.c_str()) == 0;
  });
  return found == headers.end() ? std::string() : found->second;
}

std::string Request::Param(const std::string& name) const {
  const std::string* value = FindParam(*this, name);
  return value ? *value : std::string();
}

bool Request::HasParam(const std::string& name) const { return FindParam(*this, name) != nullptr; }

}  // namespace kivosim
