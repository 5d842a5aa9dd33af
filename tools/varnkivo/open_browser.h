// Opens an address in the user's browser.
#pragma once

#include <string>

namespace kivotool {

/// Where there is a display and a person at the terminal. Says nothing where that does not work: the address is on the
/// screen.
void OpenBrowser(const std::string& address);

}  // namespace kivotool
