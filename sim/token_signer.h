// Signs id tokens: ES256 with a key made at start, whose public half the identity host publishes. Immutable, so any
// thread may sign.
#pragma once

#include <json/json.h>

#include <string>

namespace kivosim {

class TokenSigner {
 public:
  TokenSigner();
  /// A compact JWT with these claims. Throws std::runtime_error when it cannot be made.
  std::string Sign(const Json::Value& claims) const;
  const Json::Value& KeySet() const { return keySet_; }  ///< the JWK set with the public key

 private:
  std::string privatePem_, keyId_;
  Json::Value keySet_;
};

}  // namespace kivosim
