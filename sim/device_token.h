// The proof that a device sends with every request of the older account interface, computed here a second time to
// check it. Depends on the three texts alone.
#pragma once

#include <string>

namespace kivosim {

/// 32 lower-case hexadecimal digits.
std::string DeviceToken(const std::string& serial, const std::string& accountId, const std::string& accountPassword);

}  // namespace kivosim
