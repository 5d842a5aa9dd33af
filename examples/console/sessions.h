// What ties a browser to the console: a random cookie, the token in every form, and the sign-ins that it has begun.
// All of it is in memory and ends with the process. Secrets are compared in constant time.
#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace console {

/// `bytes` of the system's random source as hexadecimal digits. Throws std::runtime_error where there are none.
std::string RandomHex(std::size_t bytes);
/// A session as the console makes them; what else a cookie may hold is not taken up.
bool IsSession(const std::string& text);
bool SameSecret(const std::string& a, const std::string& b);

/// Form tokens, derived from the session: nothing has to be stored for a browser that only looks.
class FormTokens {
 public:
  FormTokens() : key_(RandomHex(32)) {}
  std::string For(const std::string& session) const;

 private:
  const std::string key_;
};

struct PendingSignIn {
  std::string state, session, verifier, redirectUri;
  std::chrono::steady_clock::time_point since = std::chrono::steady_clock::now();
};

/// The sign-ins that wait for their browser to come back: the newest few, for ten minutes each.
class PendingSignIns {
 public:
  void Add(PendingSignIn pending);
  /// Each can be taken once, and only by the session that began it; another one's attempt leaves it waiting.
  std::optional<PendingSignIn> Take(const std::string& state, const std::string& session);

 private:
  void ForgetOld();  // with mutex_ held

  std::mutex mutex_;
  std::deque<PendingSignIn> waiting_;  // oldest first
};

/// The last thing that went wrong, for the browser that asked for it. One for the process: a device has one person.
class Notice {
 public:
  struct Text {
    std::string words;
    bool offerLocalSignOut = false;
  };
  void Set(const std::string& session, Text text);
  void Clear() { Set("", {}); }
  Text For(const std::string& session);

 private:
  std::mutex mutex_;
  std::string session_;
  Text text_;
};

}  // namespace console
