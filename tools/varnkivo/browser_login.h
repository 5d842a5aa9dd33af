// Signs in through a page of the account centre: the person opens it anywhere, and hands back where it led.
#pragma once

#include <json/json.h>

namespace kivotool {

/// Prints the address on stderr, reads what was pasted from standard input, and signs the device in. Returns the
/// account.
Json::Value SignInByBrowser(bool quiet);

}  // namespace kivotool
