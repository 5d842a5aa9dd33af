// The two ends of a sign-in by browser: the address to open, and what comes back from there. Pure functions.
#pragma once

#include <json/json.h>

#include <string>

namespace kivotool {

/// What an authorization request is made of beside the client's configuration (RFC 6749, 4.1.1; RFC 7636, 4.3).
struct AuthorizationRequest {
  std::string state, verifier, challenge;
};

/// A new one, from the system's random source. Throws Failure where there is none.
AuthorizationRequest NewAuthorizationRequest();

/// The address to open; `config` is what AccountPkceService::GetLoginPkceConfig gives.
std::string AuthorizationUrl(const Json::Value& config, const AuthorizationRequest& request);

/// The code in what was pasted: the whole address that the browser was led to, or the code alone. Throws a usage
/// Failure for what is neither or has another state, and a refused one where the address says that nobody consented.
std::string CodeFromPasted(const std::string& pasted, const std::string& state, const std::string& again);

}  // namespace kivotool
