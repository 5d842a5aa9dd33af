// The form of a name is looked at first, because it becomes a path. The folder of the zone files holds more than zones,
// but only zones begin with a capital letter.
#include "sim/zone_name.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace kivosim {
namespace {

bool IsCapital(char c) { return c >= 'A' && c <= 'Z'; }

bool MayBeInName(char c) {
  return IsCapital(c) || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || (c && std::strchr("_+-/", c));
}

}  // namespace

bool IsZoneName(const std::string& text) {
  if (text.empty() || !IsCapital(text.front()) || text.back() == '/' || text.find("//") != std::string::npos ||
      !std::all_of(text.begin(), text.end(), MayBeInName))
    return false;
  const std::filesystem::path zones = "/usr/share/zoneinfo";
  std::error_code ignored;
  return !std::filesystem::exists(zones, ignored) || std::filesystem::is_regular_file(zones / text, ignored);
}

}  // namespace kivosim
