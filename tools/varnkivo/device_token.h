// A valid token of the device, or why there is none.
#pragma once

#include <string>

namespace kivotool {

/// The access token, or the id token; renewed where it has expired. `again` is the command line that asks once more.
std::string FetchDeviceToken(bool id, const std::string& again, bool quiet);

}  // namespace kivotool
