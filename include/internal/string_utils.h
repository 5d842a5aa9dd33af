// printf-style formatting into a string, for messages, URLs and file names.
#ifndef VARNKIVO_INTERNAL_STRING_UTILS_H_
#define VARNKIVO_INTERNAL_STRING_UTILS_H_

#include "internal/log.h"

#include <cstdio>
#include <memory>
#include <string>

namespace varnkivo {

/// The formatted text; empty, with a log line, when the format fails. Never throws: out of memory ends the process.
template <class... Arguments>
std::string format(const std::string& text, Arguments... arguments) noexcept {
  static_assert(sizeof...(Arguments) > 0, "a text without arguments needs no formatting");
  const int length = std::snprintf(nullptr, 0, text.c_str(), arguments...);
  if (length < 0) {
    LogError("..//include/internal/string_utils", "Failed to format: %s", text.c_str());
    return std::string();
  }
  const auto size = static_cast<std::size_t>(length) + 1;
  const std::unique_ptr<char[]> buffer(new char[size]);
  std::snprintf(buffer.get(), size, text.c_str(), arguments...);
  return std::string(buffer.get(), size - 1);
}

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_STRING_UTILS_H_
