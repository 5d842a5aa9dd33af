// Reads what a browser brings to the authorization endpoint. Two kinds of mistakes must be told apart: those that may
// be sent back to the client, and those that leave nobody to send anything back to.
#pragma once

#include <string>

#include "sim/message.h"
#include "sim/token_store.h"

namespace kivosim {

struct AuthorizationRequest {
  std::string clientId, redirectUri, scope, audience, challenge;
  std::string state;    ///< still escaped, byte for byte as it came
  std::string problem;  ///< what is wrong; "" when nothing is
  std::string error;    ///< the OAuth error code of `problem`; "": not to be sent back, the redirect URI is not known
};

/// The parameters may come in any order and in a browser's spelling, but each once and no others.
AuthorizationRequest ReadAuthorizationRequest(const Request& request, const TokenStore& oauth);

/// Back to the client with these parameters and the state.
Response RedirectBack(const AuthorizationRequest& request, const Pairs& parameters);

/// `uri` with `query` added behind its own.
std::string WithQuery(const std::string& uri, const std::string& query);

bool IsS256(const std::string& challenge);  ///< 43 digits of Base64

/// The serial number that "device.sn:..." of the scope names, or "".
std::string SerialOfScope(const std::string& scope);

}  // namespace kivosim
