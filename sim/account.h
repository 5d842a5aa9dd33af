// What the cloud knows of one person: the identity, the profile that an account query gives back, and how a sign-in is
// answered. Plain data; the simulator keeps copies.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/purchase.h"

namespace kivosim {

/// A sign of life of a device that is signed in.
struct DeviceReport {
  std::uint64_t time = 0;  ///< seconds since 1970
  std::string timezone, serial;
};

struct Account {
  std::string email;
  std::string password;
  std::string userId;

  std::string fullName = "Ann Example";
  std::string country = "DEU";
  std::string timezone = "Europe/Berlin";
  std::string notifyLanguage = "enu";
  bool activated = true;
  bool disabled = false;
  bool enews = false;
  bool criticalRelease = true;
  bool enewsLocalPromotion = false;
  std::map<std::string, bool> criticalVersionList = {{"LUM-7.1", true}, {"LUM-7.2", false}};

  // Members of the query's answer that are there only when set.
  std::optional<bool> realnameValidationPass = true;
  std::optional<std::string> reportCronTimestring = std::nullopt;
  std::optional<std::string> accountHost = std::nullopt;
  std::optional<std::string> identityHost = std::nullopt;

  /// Not empty: every operation on the account, once its credentials have been found right, is answered with this
  /// code, such as "account_unverified".
  std::string refusal = {};

  /// The auth key of each serial number that is signed in. Filled by sign-ins; a key stays the same until it is
  /// revoked. May be filled beforehand.
  std::map<std::string, std::string> authKeys = {};

  std::string registeredBy = {};           ///< serial number of the device that registered it; "": none did
  std::vector<DeviceReport> reports = {};  ///< those accepted, the oldest first
  std::vector<Purchase> purchases = {};    ///< what the shop's history tells, in this order
};

}  // namespace kivosim
