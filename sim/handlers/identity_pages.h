// What a person in front of a browser is shown: by the identity host, and by the account host where a sign-in ends.
// Pure: the handlers decide, this only words it.
#pragma once

#include <string>

#include "sim/account.h"
#include "sim/handlers/authorization_request.h"
#include "sim/message.h"

namespace kivosim {

/// What the form was filled in with last time, and what was wrong with it ("": nothing, or there was no last time).
struct SignInForm {
  bool registration = false;
  int status = 200;
  std::string problem = {}, email = {};
};

/// Asks for e-mail and password, to be posted to the address it was got from.
Response SignInPage(const AuthorizationRequest& request, const SignInForm& form);
/// Asks whether the client may have what it wants; `ticket` stands for the password that was right.
Response ConsentPage(const AuthorizationRequest& request, const Account& account, const std::string& ticket);
/// Tells of a request that cannot be sent back to a client.
Response ErrorPage(const std::string& problem);
Response SignedOutPage();

/// The end of a sign-in whose client does not fetch the code itself: to be copied by hand.
Response CodePage(const std::string& code);
/// The same for a sign-in that gave no code.
Response NoCodePage(int status, const std::string& error, const std::string& description);

}  // namespace kivosim
