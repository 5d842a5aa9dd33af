// What a person in front of a browser is shown by the identity host. Pure: the handlers decide, this only words it.
#pragma once

#include <string>

#include "sim/handlers/authorization_request.h"
#include "sim/message.h"

namespace kivosim {

/// Asks for e-mail and password, to be posted to the address it was got from. `problem`: what was wrong last time.
Response SignInPage(const AuthorizationRequest& request, int status, const std::string& problem);
/// Tells of a request that cannot be sent back to a client.
Response ErrorPage(const std::string& problem);
Response SignedOutPage();

}  // namespace kivosim
