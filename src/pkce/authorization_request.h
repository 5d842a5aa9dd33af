// What the requests for an authorization code share.
#ifndef VARNKIVO_PKCE_AUTHORIZATION_REQUEST_H_
#define VARNKIVO_PKCE_AUTHORIZATION_REQUEST_H_

#include "web_request.h"

#include <string>

namespace varnkivo {

/// A verifier and its S256 challenge (RFC 7636, section 4).
struct PkcePair {
  std::string challenge;
  std::string verifier;
};

/// Throws KivoException 6 when the host has none to give.
PkcePair NewPkcePair();

/// Appends one "scopes[]" for each word of `scope`, in their order. Throws KivoException 1 when it cannot be split.
void AddScopes(Pairs& form, const std::string& scope);

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_AUTHORIZATION_REQUEST_H_
