// The sign-in by browser. Nothing is stored before the code has come back. What is stored from then on is taken back
// where the sign-in fails or is interrupted, as long as nobody was signed in before.
#include "browser_login.h"

#include <langinfo.h>
#include <locale.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "account_state.h"
#include "apart.h"
#include "authorization.h"
#include "device_files.h"
#include "failure.h"
#include "open_browser.h"
#include "output.h"
#include "paste.h"
#include "qr_code.h"
#include "spinner.h"
#include "token_state.h"

namespace kivotool {
namespace {

constexpr char kAgain[] = "varnkivo login";
constexpr int kSeconds = 4 * 30 + 31;  // code, token, auth key, then the query
constexpr int kUsualColumns = 80;

bool CharacterSetIsUtf8() {
  const locale_t locale = newlocale(LC_CTYPE_MASK, "", nullptr);
  if (!locale) return false;
  const bool is = std::strcmp(nl_langinfo_l(CODESET, locale), "UTF-8") == 0;
  freelocale(locale);
  return is;
}

int Columns() {
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsualColumns;
}

void ShowQrCode(const std::string& address) {
  const char* obstacle = CharacterSetIsUtf8() ? nullptr : "the terminal's character set is not UTF-8";
  const QrCode code(address);
  if (!obstacle && code.Width() == 0) obstacle = "the address is too long for one";
  if (!obstacle && code.Width() > Columns()) obstacle = "the terminal is too narrow for it";
  if (obstacle)
    std::fprintf(stderr, "(There is no QR code here: %s.)\n\n", obstacle);
  else
    std::fprintf(stderr, "%s\n", code.Picture().c_str());
}

void ShowAddress(const std::string& address) {
  std::fprintf(stderr, "Open this address in a browser, here or on your phone, and sign in:\n\n  %s\n\n",
               address.c_str());
  if (StderrIsLively()) ShowQrCode(address);
  std::fprintf(stderr, "You have %d minutes. %s", kMinutesToPaste, kPastePrompt);
  std::fflush(stderr);
}

/// How a sign-in that failed has left the device.
std::string DeviceNow(const AccountState& before) {
  const AccountState now = ReadAccountState();
  const bool was = before.signIn == SignIn::kSignedIn, is = now.signIn == SignIn::kSignedIn;
  if (was && !is)
    return "It has removed the account record, that of the earlier sign-in too: nobody is signed in now. Tokens stay "
           "until the next sign-in or sign-out.";
  if (was && now.userId == before.userId)
    return "Nothing; who was signed in before still is, but its token may be of this sign-in.";
  if (is) return "It is signed in, as this sign-in has stored it.";
  const bool left = LookAt(kRecordPath).exists || LookAt(TokenPath("lum")).exists;
  return left ? "What this sign-in had stored could not all be removed." : "Nothing; nobody is signed in, as before.";
}

/// The library has one code for an answer that never came and for a code that was refused; its text tells them apart.
bool CodeWasRefused(const varnkivo::KivoException& error) {
  return error.GetCode() == KIVO_ERR_RESPONSE &&
         std::string(error.what()).rfind("Failed to exchange token, code=400,", 0) == 0;
}

Failure LoginFailure(const varnkivo::KivoException& error) {
  Failure failure = Explain(error.GetCode(), {Situation::Doing::kBrowserLogin, kAgain, error.what(), ""});
  if (!CodeWasRefused(error)) return failure;
  failure.exit = kRefused;
  failure.cause = "The account centre did not take the code: mistyped, used before, or older than ten minutes.";
  failure.retry = Retry::kPerhaps;
  return failure;
}

/// Half a sign-in is worth nothing: a token without a record, or a record without its auth key.
void TakeBack() {
  if (ReadAccountState().signIn != SignIn::kSignedIn) varnkivo::AccountPkceService().LogoutLocal();
}

void LogIn(const varnkivo::ParamPkceLogin& param, bool quiet) {
  const AccountState before = ReadAccountState();  // as it is now: minutes have passed since the tool was started
  const bool nobody = before.signIn != SignIn::kSignedIn;
  Failure failure;
  try {
    const Spinner spinner("Signing in", kSeconds, !quiet);
    const auto takeBack = [&] {
      if (nobody) varnkivo::AccountPkceService().LogoutLocal();
    };
    RunApart([&] { return varnkivo::AccountPkceService().Login(param), std::string(); }, takeBack);
    return;
  } catch (const varnkivo::KivoException& error) {
    failure = LoginFailure(error);
  } catch (const std::exception& error) {
    failure = {kFailed, std::nullopt, std::string("Unexpected: ") + error.what(), Retry::kPerhaps, "", kAgain};
  }
  if (nobody) TakeBack();
  failure.deviceNext = DeviceNow(before);
  throw failure;
}

}  // namespace

void SignInByBrowser(bool quiet) {
  try {
    const Json::Value config = varnkivo::AccountPkceService().GetLoginPkceConfig();
    const AuthorizationRequest request = NewAuthorizationRequest();
    const std::string address = AuthorizationUrl(config, request);
    ShowAddress(address);
    OpenBrowser(address);
    const std::string code = PastedCode(request.state, kAgain);
    LogIn({"", code, request.verifier, config["login_redirect_uri"].asString()}, quiet);
  } catch (const varnkivo::KivoException& error) {
    throw Explain(error.GetCode(), {Situation::Doing::kBrowserLogin, kAgain, error.what(), ""});
  }
}

}  // namespace kivotool
