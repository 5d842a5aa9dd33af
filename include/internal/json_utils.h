// JSON as the answers and files of this system use it.
#ifndef VARNKIVO_INTERNAL_JSON_UTILS_H_
#define VARNKIVO_INTERNAL_JSON_UTILS_H_

#include "internal/wiped.h"

#include <json/json.h>

#include <optional>
#include <string>

namespace varnkivo {

/// Parses `text` (comments collected) into `out`. False where it is not JSON, has more than 1000 levels or 250,000
/// commas; `out` then holds what was read before the fault.
bool ParseJson(const std::string& text, Json::Value& out);

/// The value that `text` holds. Where it is not JSON: logs it and throws KivoException 2.
Json::Value ParseAnswer(const std::string& text);
/// The value in a file of at most 4 MiB. Throws KivoException 2 where there is none.
Json::Value ReadJsonFile(const std::string& path);

/// As text: numbers and booleans in their decimal or word form, null empty. Nothing for objects, arrays, and texts with
/// a NUL inside.
std::optional<std::string> ToText(const Json::Value& value);
/// ToText of `object[name]`; an absent member is empty.
std::optional<std::string> TextMember(const Json::Value& object, const char* name);
/// A boolean as account centres send them: true, false, 0, 1, "true", "false", "yes", "no".
std::optional<bool> ToBool(const Json::Value& value);
/// `object[name]` where it is a text; null for any other kind and where absent. Owned by `object`.
const char* StringOrNull(const Json::Value& object, const char* name);
/// isMember that is false instead of throwing where `value` is not an object.
bool HasMember(const Json::Value& value, const char* name);

/// `value` as a file keeps it: on one line, without comments, with a newline at its end.
Wiped JsonLine(const Json::Value& value);

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_JSON_UTILS_H_
