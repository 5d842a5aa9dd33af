// The check of a form request, or of one with a query: method, content type, and the exact parameters in their exact
// order. Shared by all paths that a device's own code calls, whatever words they refuse with.
#pragma once

#include <string>
#include <vector>

#include "sim/message.h"

namespace kivosim {

struct Parameter {
  enum Kind {
    kFilled,
    kMayBeEmpty,
    kOptional,  ///< may be left out; empty is no fault
    kRepeated,  ///< once or more, filled
  };
  std::string name;
  Kind kind = kFilled;
  std::string value = {};                         ///< not empty: the only value allowed
  bool (*isRight)(const std::string&) = nullptr;  ///< not null: asked of every value
};

/// "" for a POST without query text whose form body holds `expected` in this order and nothing else; else what is
/// wrong.
std::string CheckForm(const Request& request, const std::vector<Parameter>& expected);
/// The same for a GET without a body, and its query text.
std::string CheckQuery(const Request& request, const std::vector<Parameter>& expected);

/// What is wrong with the header "X-Client-ID", which must be there once, as `clientId`; "" when nothing is.
std::string CheckClientHeader(const Request& request, const std::string& clientId);
std::size_t CountHeader(const Request& request, const std::string& name);  ///< name in any case

}  // namespace kivosim
