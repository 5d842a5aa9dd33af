// What the identity host deals in: clients, sets of tokens and the families these belong to. Plain data; the simulator
// keeps copies. A family is all that one sign-in has led to: each use of its refresh token replaces the token.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace kivosim {

/// A program that may ask for tokens.
struct OAuthClient {
  std::string id;
  std::vector<std::string> redirectUris;
  std::vector<std::string> logoutUris = {};  ///< where the end-session path may lead back to
  std::string package = {};                  ///< the installed package it is; "": none
};

/// What the token endpoint gave out, and the text that a client would keep of it.
struct TokenSet {
  std::string accessToken, idToken, refreshToken;
  std::string scope;
  std::int64_t expiresIn = 0;
  std::int64_t createdAt = 0;  ///< seconds since the epoch
  std::string fileText;        ///< a token file: the token endpoint's answer with "created_at"
};

struct TokenFamily {
  std::uint64_t number = 0;  ///< from 1
  std::string userId, clientId, serial, scope;
  std::uint64_t generation = 0;  ///< how many sets of tokens it has had
  bool revoked = false;
  std::string refreshHash = {};  ///< the first 12 digits of the SHA-256 of the present refresh token
};

/// Requests of one grant type at the token endpoint. One that a fault or an outage kept from the handler is not in it.
struct TokenCount {
  std::uint64_t requests = 0, granted = 0;
};
using TokenCounts = std::map<std::string, TokenCount>;  ///< by "grant_type"

}  // namespace kivosim
