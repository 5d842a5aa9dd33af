// What the calls of the account host share that take an access token, or give a code for the token endpoint.
#pragma once

#include <optional>
#include <string>

#include "sim/cloud_state.h"
#include "sim/handlers/routes.h"
#include "sim/message.h"

namespace kivosim {

/// What is wrong with the header "Authorization", which must be there once, as a bearer token; "" when nothing is.
std::string CheckBearerHeader(const Request& request);
/// Fills `holder` with whom the bearer token speaks for, or gives the refusal: 401 for a token that is no good (any
/// more), with a complaint for a good one of another client than that of `package` ("": of no package).
std::optional<Reply> RefuseBearer(const Request& request, const CloudState& state, const std::string& package,
                                  Grantee& holder);

/// What is wrong with "client_id", a known client, and "redirect_url", one of its own; "" when nothing is.
std::string CheckRedirect(const Request& request, const CloudState& state);
/// The "scopes[]" with blanks between.
std::string ScopeOf(const Request& request);
/// {"grant_code"}, bound to "redirect_url" and "code_challenge".
Response GrantCode(const Grantee& to, const Request& request, CloudState& state);

}  // namespace kivosim
