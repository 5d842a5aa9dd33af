// Unguessable letters and digits for keys that the cloud gives out.
#pragma once

#include <cstddef>
#include <string>

namespace kivosim {

/// `length` lower-case hexadecimal digits from the system's generator.
std::string RandomText(std::size_t length);

}  // namespace kivosim
