// Asks the library for a token and finds the words where it has none. The token itself is never part of a failure.
#include "device_token.h"

#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include <algorithm>
#include <typeinfo>

#include "account_state.h"
#include "failure.h"
#include "history.h"
#include "spinner.h"

namespace kivotool {
namespace {

constexpr int kSeconds = 30 + 4 * 30;  // the lock, then a renewal, a grant, its exchange and a sign-out

/// The sign-in may have ended in the middle: the library signs the device out when nothing can rescue the token.
Failure TokenFailure(const varnkivo::KivoException& error, const std::string& again, const AccountState& before,
                     Voice voice) {
  if (NoticeSignOut(before, error.GetCode(), voice)) {
    Failure failure = NotSignedInFailure();
    failure.libraryCode = error.GetCode();
    failure.cause = "The account centre no longer accepts this device: it has been signed out.";
    return failure;
  }
  if (before.signIn != SignIn::kSignedIn && error.GetCode() == KIVO_ERR_TOKEN) {
    Failure failure = NotSignedInFailure();
    failure.libraryCode = error.GetCode();
    return failure;
  }
  return Explain(error.GetCode(), {Situation::Doing::kToken, again, error.what(), ""});
}

/// RFC 6749, appendix A.12. A header or a script must not get more than a token, or nothing at all.
void RequirePrintable(const std::string& token) {
  const auto belongs = [](unsigned char c) { return c >= 0x20 && c <= 0x7e; };
  if (!token.empty() && std::all_of(token.begin(), token.end(), belongs)) return;
  throw Failure{kFailed,
                std::nullopt,
                "The stored token is empty or no token at all.",
                Retry::kNo,
                "Nothing; it takes the token for valid until it expires.",
                "varnkivo logout --local"};
}

}  // namespace

std::string FetchDeviceToken(bool id, const std::string& again, bool quiet) {
  const AccountState before = ReadAccountState();
  try {
    const Spinner spinner("Asking for a token", kSeconds, !quiet);
    const varnkivo::AccountPkceService service;
    const std::string token = id ? service.GetIdToken() : service.GetAccessToken();
    RequirePrintable(token);
    return token;
  } catch (const varnkivo::KivoException& error) {
    throw TokenFailure(error, again, before, VoiceFor(quiet));
  } catch (const std::bad_cast&) {
    throw Failure{kFailed,
                  std::nullopt,
                  "The stored token has no usable lifetime.",
                  Retry::kNo,
                  "Nothing; it cannot tell when to renew it.",
                  "varnkivo logout --local"};
  }
}

}  // namespace kivotool
