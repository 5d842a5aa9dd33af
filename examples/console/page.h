// The pages of the console as HTML. Pure functions; every text that is not the page's own is escaped.
// There is no script and nothing from elsewhere, and the policy of the answers forbids both.
#pragma once

#include <string>

#include "device.h"

namespace console {

extern const char* const kStyle;  ///< for "/style.css"

std::string IndexPage(const DeviceState& state, const Session& session);
std::string MessagePage(const std::string& title, const std::string& words);

}  // namespace console
