// What the paths of the payment host have in common.
#pragma once

#include <string>

#include "sim/cloud_state.h"
#include "sim/message.h"

namespace kivosim {

/// Whether "kivoID", an e-mail address, and "kivoPW", the MD5 digest of the password, belong together: "", or the code
/// to refuse the request with. The shop does not tell an unknown account from a wrong password.
std::string CheckShopper(const Request& request, const CloudState& state);

}  // namespace kivosim
