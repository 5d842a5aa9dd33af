// A valid token of the device or of a package, or why there is none.
#pragma once

#include <cstdint>
#include <string>

#include "token_state.h"
#include "verb.h"

namespace kivotool {

struct TokenWish {
  bool ofPackage = false;  ///< else the device's own
  std::string package;
  bool id = false;            ///< the id token instead of the access token
  bool grantAnew = false;     ///< packages: whatever the age of the stored one
  std::int64_t minValid = 0;  ///< seconds that have to be left; packages: by a new grant where it must be
  std::string again;          ///< the command line that asks once more, without "--force"
};

struct FetchedToken {
  std::string text;
  TokenState state;
  std::int64_t at = 0;  ///< when it was looked at, seconds since the epoch
};

/// Renewed, or granted, where it has to be. Throws Failure: also one with `kUnreachable` where too few seconds are
/// left.
FetchedToken FetchToken(const TokenWish& wish, bool quiet);

/// Adds "--package NAME" to `verb`.
Option AddPackageOption(Verb verb, TokenWish& wish);
/// " --package NAME" as the shell reads it; empty for the device.
std::string PackageWords(const TokenWish& wish);

}  // namespace kivotool
