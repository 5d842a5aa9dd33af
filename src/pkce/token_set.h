// The tokens of one client, as its token file holds them.
#ifndef VARNKIVO_PKCE_TOKEN_SET_H_
#define VARNKIVO_PKCE_TOKEN_SET_H_

#include <json/json.h>

#include <cstdint>
#include <string>

namespace varnkivo {

class TokenSet {
 public:
  /// An answer of the token endpoint with "created_at", whatever else it has. Throws KivoException 2 for what is no
  /// JSON object.
  explicit TokenSet(Json::Value members);

  /// Whether `answer` has all three tokens; those that are texts must be UTF-8 without control characters.
  static bool IsComplete(const Json::Value& answer);

  /// The member as text. Throws KivoException 22 where it is absent, 2 where it is an object or an array.
  std::string GetPkceTokenVal(const char* key) const;
  /// Seconds since the epoch. Throws std::bad_cast where "created_at" or "expires_in" is no whole number of 32 bits.
  std::int64_t GetExpiredAt() const;
  /// The second of the expiry itself still counts as valid.
  bool IsTokenExpired(std::int64_t now) const { return now > GetExpiredAt(); }
  const Json::Value& GetMembers() const { return members_; }

 private:
  Json::Value members_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_TOKEN_SET_H_
