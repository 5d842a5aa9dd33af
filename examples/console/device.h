// What the console asks of the library: how the device stands, a sign-in and a sign-out. Calls are serialised here.
// The library's last-error slot is one for the whole process: it is read under the same lock as the call that failed.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace console {

/// Why something did not work, in words for the person in front of the page. Never holds a secret.
struct Problem : std::runtime_error {
  using std::runtime_error::runtime_error;
};

enum class Token { kNone, kValid, kExpired, kUnreadable };

struct DeviceState {
  bool signedIn = false;
  std::string email, name, userId;
  std::int64_t lastQuery = 0;  ///< of the profile, seconds since the epoch; 0: never
  Token token = Token::kNone;
  std::int64_t tokenUntil = 0;
  std::string jobLine;       ///< empty: no report is scheduled
  std::int64_t nextRun = 0;  ///< 0: not known
  std::string accountHost, identityHost, paymentHost;
  std::string problem;  ///< what could not be read; empty: everything could
};

/// The ends of one authorization request (RFC 6749, 4.1.1; RFC 7636, 4.3): where the browser goes, what stays here.
struct SignInStart {
  std::string url, verifier, redirectUri;
};

class Device {
 public:
  /// How the device stands, without asking anybody. None: another call has been under way for two seconds and more.
  std::optional<DeviceState> Look();
  /// Makes a verifier and the address to send the browser to. Throws Problem.
  SignInStart BeginSignIn(const std::string& state);
  /// Trades the code for tokens and an account: up to four requests of 30 seconds each. Throws Problem.
  void SignIn(const std::string& code, const std::string& verifier, const std::string& redirectUri);
  /// `tellCentre`: the account centre is told first, and its refusal keeps everything. Throws Problem.
  void SignOut(bool tellCentre);

 private:
  std::timed_mutex mutex_;
};

}  // namespace console
