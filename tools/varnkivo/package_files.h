// What lies on the device of each client of the identity host: the device itself and the installed packages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "token_state.h"

namespace kivotool {

/// The cached configuration of a package.
struct ConfigurationState {
  enum class Kind {
    kNone,
    kFresh,
    kStale,    ///< asked for again before it is used
    kIgnored,  ///< somebody else may have put it there, or it cannot be read
  };
  Kind kind = Kind::kNone;
  std::int64_t cachedAt = 0;  ///< seconds since the epoch; 0: not known
};

/// The names of all clients with a token file: the device's own first, then by name. A name is never more than one
/// part of a path. Throws a permission Failure where the private directory is out of reach.
std::vector<std::string> ClientsWithTokens();

std::string ConfigurationPath(const std::string& package);
ConfigurationState ReadConfigurationState(const std::string& package, std::int64_t now);

}  // namespace kivotool
