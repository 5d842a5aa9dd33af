// The sign-in by browser: the person signs in on the account centre's own page and brings back what that shows.
#pragma once

namespace kivotool {

/// Prints the address, as a QR code too, opens it where there is a display, waits for the code and signs in with it.
/// `quiet`: no spinner. Throws Failure; an interruption or a failure leaves the device as it was where nobody was
/// signed in before.
void SignInByBrowser(bool quiet);

}  // namespace kivotool
