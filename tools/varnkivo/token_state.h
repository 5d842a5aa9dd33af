// What the token files say about a token without showing it: whether there is one, its age and its expiry.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

namespace kivotool {

constexpr char kDeviceClient[] = "lum";
constexpr char kPrivateFolder[] = "/usr/varn/etc/varnholt-account/private/";

struct TokenState {
  bool known = true;  ///< false: this user may not see it, or it cannot be read as what it should be
  bool exists = false;
  std::int64_t createdAt = 0;  ///< seconds since the epoch; 0: not known
  std::int64_t expiresAt = 0;  ///< the last second in which it is valid
};

/// The token file of `client` (kDeviceClient: the device's own). Asks nobody.
TokenState ReadTokenState(const std::string& client);
std::string TokenPath(const std::string& client);
/// Whether there is a token file of `client` from which nobody gets `token` ("access_token"): it is no JSON object, or
/// has not all of its members. False where this user may not see it.
bool IsUselessSet(const std::string& client, const char* token);

/// "none", "valid", "expired" or "unknown".
const char* TokenStateName(const TokenState& state, std::int64_t now);
/// The state as the documents have it: "state", "created_*", "expires_*".
Json::Value TokenJson(const TokenState& state, std::int64_t now);
/// The state for people: "valid for 3540 s (issued 2026-...)".
std::string TokenText(const TokenState& state, std::int64_t now);

}  // namespace kivotool
