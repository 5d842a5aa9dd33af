// Makes text from outside fit for a log line or an exception: no secret, no control character, at most 2 KiB.
#ifndef VARNKIVO_INTERNAL_REDACT_H_
#define VARNKIVO_INTERNAL_REDACT_H_

#include <string>
#include <string_view>

namespace varnkivo {

/// `text` (JSON, a form, a URL, an exception's text) with the values of members and parameters that hold tokens cut to
/// 10 characters and those that hold passwords left out, control characters as \xNN, cut at 2 KiB. A text with none of
/// these comes back byte for byte.
std::string Redact(std::string_view text);
/// The value of the parameter `name` as `Redact` would show it within a form.
std::string RedactValue(std::string_view name, std::string_view value);
/// The first 10 characters of a secret, control characters as \xNN.
std::string Cut10(std::string_view secret);

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_REDACT_H_
