// A JSON object in one of the documented files, and whether it could be seen at all.
#pragma once

#include <json/json.h>
#include <sys/stat.h>

#include <cstdint>
#include <string>

namespace kivotool {

struct JsonFile {
  bool known = true;  ///< false: this user may not see it, or it cannot be read as what it should be
  bool exists = false;
  struct stat facts {};
  Json::Value document;  ///< null where it is not known
};

/// A link is not followed.
JsonFile ReadJsonFile(const std::string& path);
/// The number `name` of `document`, also where it is written as text; 0 where it is none.
std::int64_t SecondsIn(const Json::Value& document, const char* name);

}  // namespace kivotool
