// The pages of the console as HTML. Pure functions; every text that is not the page's own is escaped.
// There is no script and nothing from elsewhere, and the policy of the answers forbids both.
#pragma once

#include <string>

#include "device.h"
#include "sessions.h"

namespace console {

std::string IndexPage(const DeviceState& state, const Notice::Text& notice, const std::string& formToken);
std::string SignOutPage(const DeviceState& state, const std::string& formToken);
std::string MessagePage(const std::string& title, const std::string& words);

/// The Content-Security-Policy. Browsers apply form-action to the redirects after a form too, so the hosts that a
/// sign-in leads over are named in it.
std::string ContentPolicy(const DeviceState& state);

}  // namespace console
