// What the two sign-ins of the account host have in common: the checks of device and account, and the answer.
#pragma once

#include <optional>
#include <string>

#include "sim/cloud_state.h"
#include "sim/message.h"

namespace kivosim {

/// "" when the device that sends the request may sign in, else the code to refuse it with. An API key that is seen
/// for the first time may become the registered one here.
std::string CheckDevice(const Request& request, CloudState& state);

/// The answer once the credentials are right: id, auth key and e-mail, or the account's own refusal.
Response SignIn(const Account& account, const std::string& serial, CloudState& state);

}  // namespace kivosim
