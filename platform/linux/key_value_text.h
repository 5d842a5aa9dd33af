// The text of a key/value file: how a value is written, found and replaced. Pure functions over the whole content.
// Every value without a NUL must read back unchanged, and no value may add a line.
#ifndef VARNPLATFORM_KEY_VALUE_TEXT_H
#define VARNPLATFORM_KEY_VALUE_TEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varnplatform {

/// Every key in the order of the file with its decoded value; of a key that occurs twice the first.
std::vector<std::pair<std::string, std::string>> ParsePairs(std::string_view content, std::string_view separator);

/// The decoded value of the key's first line.
std::optional<std::string> FindValue(std::string_view content, std::string_view key);

/// The line for key and value, printed with `format` ("%s" for the key, "%s" for the value, newline last). Nothing
/// where the key or the format is not allowed, or where the line would not read back as this pair.
std::optional<std::string> PrintLine(std::string_view key, std::string_view value, std::string_view format);

/// `content` with the key's first line replaced by `line`, or with `line` appended.
std::string WithLine(std::string_view content, std::string_view key, std::string_view line);

}  // namespace varnplatform

#endif  // VARNPLATFORM_KEY_VALUE_TEXT_H
