// Names of time zones as devices send them. Read from the machine's own zone files; nothing is kept.
#pragma once

#include <string>

namespace kivosim {

/// Whether this is an IANA name such as "Europe/Berlin". A machine without zone files cannot tell, and takes every
/// name of the right form.
bool IsZoneName(const std::string& text);

}  // namespace kivosim
