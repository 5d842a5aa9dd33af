// Asks the library for a token and finds the words where it has none. The token itself is never part of a failure.
// A package's name becomes part of a path: the library is asked first, since it refuses the names that must not.
#include "fetch_token.h"

#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <typeinfo>

#include "account_state.h"
#include "failure.h"
#include "history.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

// A lock is waited for, and an answer, up to 30 seconds each. The device's own token takes at worst 5 locks and 3
// requests: a refused renewal, a grant and its exchange. A package's takes 9 locks and 4 requests beside those:
// configuration, a refused renewal, a grant and its exchange.
constexpr int kStep = 30, kDeviceSteps = 5 + 3, kPackageSteps = kDeviceSteps + 9 + 4;

std::string Again(const TokenWish& wish) { return wish.again + (wish.grantAnew ? " --force" : ""); }

Failure PlainFailure(const TokenWish& wish, const varnkivo::KivoException& error, std::int64_t seconds) {
  if (!wish.ofPackage)
    return Explain(error.GetCode(), {Situation::Doing::kToken, Again(wish), error.what(), "", seconds});
  if (error.GetCode() == KIVO_ERR_BAD_PARAM) {
    Failure failure = UsageFailure(
        "A package's name is 1 to 128 of A-Z a-z 0-9 . _ -, does not begin with a dot, and is not \"lum\".",
        "varnkivo packages");
    failure.libraryCode = error.GetCode();
    return failure;
  }
  return Explain(error.GetCode(), {Situation::Doing::kPackageToken, Again(wish), error.what(), "", seconds});
}

/// Whether the library fails so when the account centre has ended the sign-in; a lock that is held is no answer of it.
bool CanMeanSignOut(const varnkivo::KivoException& error) {
  const int code = error.GetCode();
  if (ExitFromLibrary(code, error.what(), Caller::kOther) == kBusy) return false;
  return code == KIVO_ERR_NO_ACCOUNT || code == KIVO_ERR_AUTH || code == KIVO_ERR_TOKEN;
}

Failure UselessToken(const TokenWish& wish, const std::string& cause, const char* deviceNext) {
  return {kFailed,    std::nullopt,
          cause,      Retry::kNo,
          deviceNext, wish.ofPackage ? "varnkivo token" + PackageWords(wish) + " --force" : "varnkivo logout --local"};
}

/// Whether a package's stored set is what the library stumbled over: that has the codes of an answer that is no JSON
/// and of a sign-in that is missing. A new set does not look at the stored one.
bool StoredSetIsToBlame(const TokenWish& wish, int code, const Failure& failure, SignIn before) {
  if (!wish.ofPackage || wish.grantAnew || failure.exit == kBusy) return false;
  const bool canBe = code == KIVO_ERR_BAD_JSON || (code == KIVO_ERR_TOKEN && before == SignIn::kSignedIn);
  return canBe && IsUselessSet(wish.package, wish.id ? "id_token" : "access_token");
}

/// The sign-in may have ended in the middle: the library signs the device out when nothing can rescue the token.
Failure TokenFailure(const TokenWish& wish, const varnkivo::KivoException& error, const Beginning& before,
                     std::int64_t seconds, Voice voice) {
  const SignOut signOut = NoticeSignOut(before, error.GetCode(), CanMeanSignOut(error), voice);
  if (signOut == SignOut::kOther) {
    Failure failure = SignedOutMeanwhileFailure();
    failure.libraryCode = error.GetCode();
    return failure;
  }
  if (signOut == SignOut::kForced) {
    Failure failure = NotSignedInFailure();
    failure.libraryCode = error.GetCode();
    failure.cause = "The account centre no longer accepts this device: it has been signed out.";
    return failure;
  }
  const Failure failure = PlainFailure(wish, error, seconds);
  if (StoredSetIsToBlame(wish, error.GetCode(), failure, before.account.signIn)) {
    Failure useless =
        UselessToken(wish, "The stored token set of the package cannot be used: " + TokenPath(wish.package) + ".",
                     "Nothing; it neither uses nor replaces the set by itself.");
    useless.libraryCode = error.GetCode();
    return useless;
  }
  if (before.account.signIn == SignIn::kSignedIn || failure.exit != kNotSignedIn) return failure;
  Failure signedOut = NotSignedInFailure();
  signedOut.libraryCode = error.GetCode();
  return signedOut;
}

/// RFC 6749, appendix A.12. A header or a script must not get more than a token, or nothing at all.
void RequirePrintable(const TokenWish& wish, const std::string& token) {
  const auto belongs = [](unsigned char c) { return c >= 0x20 && c <= 0x7e; };
  if (!token.empty() && std::all_of(token.begin(), token.end(), belongs)) return;
  throw UselessToken(wish, "The stored token is empty or no token at all.",
                     "Nothing; it takes the token for valid until it expires.");
}

void RequireValidity(const TokenWish& wish, const FetchedToken& token) {
  const std::int64_t left = token.state.expiresAt - token.at;
  if (wish.minValid <= 0 || left >= wish.minValid) return;
  const std::string valid = "The token is valid for " + std::to_string(left) + " s only.";
  if (wish.ofPackage)
    throw Failure{kUnreachable,
                  std::nullopt,
                  valid + " It has just been granted.",
                  Retry::kNo,
                  "Nothing; the account centre says for how long a token is valid.",
                  wish.again};
  throw Failure{kUnreachable,
                std::nullopt,
                valid,
                Retry::kYes,
                "It renews the token when that has expired, not before.",
                left < 0 ? wish.again : "sleep " + std::to_string(left + 1) + "; " + wish.again};
}

template <class Source>
FetchedToken Ask(const Source& source, const TokenWish& wish, const std::string& client) {
  FetchedToken token;
  token.text = wish.id ? source.GetIdToken() : source.GetAccessToken();
  token.state = ReadTokenState(client);
  token.at = std::time(nullptr);
  return token;
}

/// A set that came just now is not granted once more: another would be no longer valid.
FetchedToken AskForPackage(const TokenWish& wish) {
  const varnkivo::PackagePkceClient client(wish.package);
  const std::int64_t begin = std::time(nullptr);
  if (wish.grantAnew) client.ForceRenewToken();
  const FetchedToken token = Ask(client, wish, wish.package);
  const bool enough = token.state.expiresAt - token.at >= wish.minValid;
  if (wish.minValid <= 0 || enough || token.state.createdAt >= begin) return token;
  client.ForceRenewToken();
  return Ask(client, wish, wish.package);
}

}  // namespace

FetchedToken FetchToken(const TokenWish& wish, bool quiet) {
  const Beginning before = Begin(Again(wish));
  const auto begin = std::chrono::steady_clock::now();
  try {
    const Spinner spinner("Asking for a token", kStep * (wish.ofPackage ? kPackageSteps : kDeviceSteps), !quiet);
    FetchedToken token =
        wish.ofPackage ? AskForPackage(wish) : Ask(varnkivo::AccountPkceService(), wish, kDeviceClient);
    RequirePrintable(wish, token.text);
    RequireValidity(wish, token);
    return token;
  } catch (const varnkivo::KivoException& error) {
    const auto took = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
    throw TokenFailure(wish, error, before, took.count(), VoiceFor(quiet));
  } catch (const std::bad_cast&) {
    throw UselessToken(wish, "The stored token has no usable lifetime.", "Nothing; it cannot tell when to renew it.");
  }
}

Option AddPackageOption(Verb verb, TokenWish& wish) {
  const auto take = [&wish](const std::string& name) {
    wish.ofPackage = true;
    wish.package = name;
  };
  return verb.Text("--package", take, "NAME", "The token of the installed package NAME instead of the device's own");
}

std::string PackageWords(const TokenWish& wish) {
  return wish.ofPackage ? " --package " + ShellWord(wish.package) : "";
}

}  // namespace kivotool
