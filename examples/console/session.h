// What the console remembers of a browser, under a random cookie: its form token, the sign-in that it has begun, and
// what went wrong last. All of it is in memory and ends with the process; the server calls from one thread at a time.
#pragma once

#include <chrono>
#include <string>

namespace console {

/// `bytes` of the system's random source as hexadecimal digits. Throws std::runtime_error where there are none.
std::string RandomHex(std::size_t bytes);
/// In constant time. An empty secret equals nothing.
bool SameSecret(const std::string& a, const std::string& b);

struct Notice {
  std::string words;
  bool offerLocalSignOut = false;
};

/// One authorization request under way; the verifier is never part of a page or an address.
struct PendingSignIn {
  std::string state, verifier, redirectUri;
  std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
};

struct Session {
  std::string cookie = RandomHex(16), formToken = RandomHex(16);
  PendingSignIn pending;
  Notice notice;

  /// The sign-in that this state belongs to, once and within ten minutes; else one without a state.
  PendingSignIn TakePending(const std::string& state);
};

}  // namespace console
