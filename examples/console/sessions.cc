// The browser's side of the console, without HTTP. Touches the random source and nothing outside the process.
// A verifier stays here until its sign-in is taken or forgotten, and is never part of a page or an address.
#include "sessions.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace console {
namespace {

constexpr std::size_t kMostPending = 8;
constexpr std::chrono::minutes kLifetime(10);
constexpr std::size_t kSessionDigits = 32;

std::string Hex(const unsigned char* bytes, std::size_t count) {
  std::string out;
  for (std::size_t i = 0; i < count; ++i) {
    out += "0123456789abcdef"[bytes[i] >> 4];
    out += "0123456789abcdef"[bytes[i] & 15];
  }
  return out;
}

}  // namespace

std::string RandomHex(std::size_t bytes) {
  std::vector<unsigned char> random(bytes);
  if (getrandom(random.data(), bytes, 0) != static_cast<ssize_t>(bytes))
    throw std::runtime_error("the system has no random numbers to give");
  return Hex(random.data(), bytes);
}

bool IsSession(const std::string& text) {
  return text.size() == kSessionDigits && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

bool SameSecret(const std::string& a, const std::string& b) {
  return !a.empty() && a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string FormTokens::For(const std::string& session) const {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (!HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
            reinterpret_cast<const unsigned char*>(session.data()), session.size(), digest, &size))
    throw std::runtime_error("no form token could be made");
  return Hex(digest, size);
}

void PendingSignIns::ForgetOld() {
  const auto now = std::chrono::steady_clock::now();
  while (!waiting_.empty() && (waiting_.size() > kMostPending || now - waiting_.front().since > kLifetime))
    waiting_.pop_front();
}

void PendingSignIns::Add(PendingSignIn pending) {
  const std::lock_guard<std::mutex> lock(mutex_);
  waiting_.push_back(std::move(pending));
  ForgetOld();
}

std::optional<PendingSignIn> PendingSignIns::Take(const std::string& state, const std::string& session) {
  const std::lock_guard<std::mutex> lock(mutex_);
  ForgetOld();
  const auto found = std::find_if(waiting_.begin(), waiting_.end(), [&](const PendingSignIn& pending) {
    return SameSecret(pending.state, state) && SameSecret(pending.session, session);
  });
  if (found == waiting_.end()) return std::nullopt;
  PendingSignIn taken = std::move(*found);
  waiting_.erase(found);
  return taken;
}

void Notice::Set(const std::string& session, Text text) {
  const std::lock_guard<std::mutex> lock(mutex_);
  session_ = session;
  text_ = std::move(text);
}

Notice::Text Notice::For(const std::string& session) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return SameSecret(session_, session) ? text_ : Text();
}

}  // namespace console
