// What the console remembers of a browser, under a random cookie: its form token, the sign-in that it has begun, and
// what went wrong last. All of it is in memory and ends with the process; the server calls from one thread at a time.
#pragma once

#include <openssl/crypto.h>
#include <sys/random.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

namespace console {

/// `bytes` of the system's random source as hexadecimal digits. Throws std::runtime_error where there are none.
inline std::string RandomHex(std::size_t bytes) {
  std::string random(bytes, '\0'), out;
  if (getrandom(random.data(), bytes, 0) != static_cast<ssize_t>(bytes))
    throw std::runtime_error("the system has no random numbers to give");
  for (const char c : random) {
    out += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
    out += "0123456789abcdef"[c & 15];
  }
  return out;
}

/// In constant time. An empty secret equals nothing.
inline bool SameSecret(const std::string& a, const std::string& b) {
  return !a.empty() && a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

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
  Notice notice;  // shown once

  /// The sign-in that this state belongs to, once and within ten minutes; else one without a state.
  PendingSignIn TakePending(const std::string& state) {
    if (!SameSecret(pending.state, state)) return {};
    PendingSignIn taken = std::exchange(pending, {});
    return std::chrono::steady_clock::now() - taken.begun > std::chrono::minutes(10) ? PendingSignIn() : taken;
  }
};

}  // namespace console
