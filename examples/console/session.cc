// Sessions without HTTP. Touches the random source and nothing outside the process.
#include "session.h"

#include <openssl/crypto.h>
#include <sys/random.h>

#include <stdexcept>
#include <utility>

namespace console {

std::string RandomHex(std::size_t bytes) {
  std::string random(bytes, '\0'), out;
  if (getrandom(random.data(), bytes, 0) != static_cast<ssize_t>(bytes))
    throw std::runtime_error("the system has no random numbers to give");
  for (const char c : random) {
    out += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
    out += "0123456789abcdef"[c & 15];
  }
  return out;
}

bool SameSecret(const std::string& a, const std::string& b) {
  return !a.empty() && a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

PendingSignIn Session::TakePending(const std::string& state) {
  if (!SameSecret(pending.state, state)) return {};
  PendingSignIn taken = std::exchange(pending, {});
  return std::chrono::steady_clock::now() - taken.begun > std::chrono::minutes(10) ? PendingSignIn() : taken;
}

}  // namespace console
