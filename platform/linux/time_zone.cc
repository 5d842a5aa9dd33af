// The host's time zone: the first line of "/etc/timezone", else the target of the "/etc/localtime" link, else UTC,
// which is what the C library takes where neither exists. Ids on an ordinary Linux machine are IANA names already.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstring>
#include <string>

#include "device_facts.h"
#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

const char* const kZones = "/usr/share/zoneinfo/";

bool IsZoneName(const std::string& zone) {
  const auto allowed = [](char c) {
    return (c > 0 && std::isalnum(static_cast<unsigned char>(c))) || std::strchr("_+-/", c);
  };
  return !zone.empty() && zone.size() < 256 && zone.front() != '/' && zone.back() != '/' &&
         std::all_of(zone.begin(), zone.end(), [&](char c) { return c != '\0' && allowed(c); });
}

std::string ZoneOfLink() {
  char target[PATH_MAX];
  const ssize_t length = readlink("/etc/localtime", target, sizeof target);
  if (length < 0) return access("/etc/localtime", F_OK) == 0 ? "" : "UTC";  // a copied file does not tell its name
  const std::string text(target, static_cast<std::size_t>(length));
  const std::size_t at = text.find("zoneinfo/");
  return at == std::string::npos ? "" : text.substr(at + std::strlen("zoneinfo/"));
}

std::string ZoneOfHost() {
  const std::string named = FirstLine("/etc/timezone");
  const std::string zone = IsZoneName(named) ? named : ZoneOfLink();
  return IsZoneName(zone) ? zone : "";
}

/// A machine without the zone files cannot tell, so every well-formed name counts there.
bool IsKnownZone(const std::string& zone) {
  return IsZoneName(zone) && (access(kZones, F_OK) != 0 || access((kZones + zone).c_str(), F_OK) == 0);
}

}  // namespace
}  // namespace varnplatform

using namespace varnplatform;

int VARNZoneGet(char* zone, int size, int* needed) {
  if (needed) *needed = 0;
  if (zone && size > 0) zone[0] = '\0';
  if (!zone || size < 1) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    const std::string text = ZoneOfHost();
    if (text.empty()) return Fail(VLIB_ERR_NO_ZONE);
    const int bytes = static_cast<int>(text.size()) + 1;
    if (needed) *needed = bytes;
    if (bytes > size) return Fail(VLIB_ERR_TOO_LARGE);
    CopyOut(text, zone, size);
    return 0;
  });
}

int VARNZoneGetInfo(const char* zone, VLIBSzHash* info) {
  if (!zone || !info) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    if (!IsKnownZone(zone)) return Fail(VLIB_ERR_NO_ZONE);
    return VLIBCSzHashSetValue(info, "nameInTZDB", zone) == 0 ? 1 : -1;
  });
}
