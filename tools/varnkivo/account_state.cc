// Reads who is signed in. Touches the account record, never writes it. "Signed in" is what a request needs, user id and
// auth key: an e-mail alone, or one half of the pair, is the trace of something that was interrupted.
#include "account_state.h"

#include <string.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <memory>

namespace kivotool {
namespace {

/// VARNKIVOAccountGet without keeping its auth key: true when there is a complete sign-in.
bool HasSignIn(const std::string& again) {
  const auto info = std::make_unique<_tag_kivo_INFO_>();
  const int result = VARNKIVOAccountGet(info.get());
  const int code = VARNKIVOErrGet();
  explicit_bzero(info->authKey, sizeof info->authKey);
  if (result != 0 && code != KIVO_ERR_NO_ACCOUNT)
    throw Explain(code, {Situation::Doing::kReadingRecord, again, "", ""});
  return result == 0;
}

}  // namespace

AccountState ReadAccountState(const std::string& again) {
  AccountState state;
  const bool complete = HasSignIn(again);
  WithRecord([&] {
    const varnkivo::User user;
    state.email = user.GetEmail();
    state.userId = user.GetUserId();
    state.activated = user.GetIsActivated();
    state.lastQuery = user.GetLastQueryTime();
  });
  const bool anything = !state.email.empty() || !state.userId.empty();
  state.signIn = complete ? SignIn::kSignedIn : anything ? SignIn::kIncomplete : SignIn::kSignedOut;
  return state;
}

const char* SignInName(SignIn signIn) {
  switch (signIn) {
    case SignIn::kSignedOut:
      return "signed_out";
    case SignIn::kIncomplete:
      return "incomplete";
    case SignIn::kSignedIn:
      return "signed_in";
  }
  return "signed_out";
}

}  // namespace kivotool
