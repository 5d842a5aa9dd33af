// What the console asks of the library: how the device stands, a sign-in and a sign-out. The library's last-error slot
// is one for the whole process, so these are called from one thread at a time.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "session.h"

namespace console {

/// Why something did not work, in words for the person in front of the page. Never holds a secret.
struct Problem : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct DeviceState {
  bool signedIn = false;
  std::string email, name, userId;
  std::int64_t lastQuery = 0;   ///< of the profile, seconds since the epoch; 0: never
  std::int64_t tokenUntil = 0;  ///< 0: there is no token file; below: none that can be read
  std::string jobLine;          ///< empty: no report is scheduled
  std::string problem;          ///< what could not be read; empty: everything could
};

/// How the device stands, without asking anybody.
DeviceState Look();
/// Makes a verifier, and the address to send the browser to (RFC 6749, 4.1.1; RFC 7636, 4.3). Throws Problem.
std::string BeginSignIn(PendingSignIn& pending);
/// Trades the code for tokens and an account: up to four requests of 30 seconds each. Throws Problem, and leaves
/// nothing behind then; only to be called while nobody is signed in.
void SignIn(const std::string& code, const PendingSignIn& pending);
/// `tellCentre`: the account centre is told first, and its refusal keeps everything. Throws Problem.
void SignOut(bool tellCentre);

}  // namespace console
