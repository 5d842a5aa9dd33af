// The sign-in by browser. Nothing is stored before the code has come back, so that an interruption leaves nothing
// behind.
#include "browser_login.h"

#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include <cstdio>
#include <string>

#include "authorization.h"
#include "failure.h"
#include "spinner.h"

namespace kivotool {
namespace {

constexpr char kAgain[] = "varnkivo login";
constexpr int kSeconds = 4 * 30 + 31;  // code, token, auth key, then the query
constexpr std::size_t kLongestLine = 16384;

/// One line, byte by byte: what follows may be for somebody else.
std::string ReadLine() {
  std::string line;
  char c = 0;
  while (line.size() < kLongestLine && read(STDIN_FILENO, &c, 1) == 1 && c != '\n') line += c;
  return line;
}

}  // namespace

Json::Value SignInByBrowser(bool quiet) {
  try {
    const varnkivo::AccountPkceService service;
    const Json::Value config = service.GetLoginPkceConfig();
    const AuthorizationRequest request = NewAuthorizationRequest();
    std::fprintf(stderr, "Open this address in a browser and sign in:\n\n  %s\n\n",
                 AuthorizationUrl(config, request).c_str());
    std::fputs("Then paste the address that it leads to, or the code it shows: ", stderr);
    std::fflush(stderr);
    const std::string code = CodeFromPasted(ReadLine(), request.state, kAgain);
    const Spinner spinner("Signing in", kSeconds, !quiet);
    return service.Login({"", code, request.verifier, config["login_redirect_uri"].asString()});
  } catch (const varnkivo::KivoException& error) {
    throw Explain(error.GetCode(), {Situation::Doing::kBrowserLogin, kAgain, error.what(), ""});
  }
}

}  // namespace kivotool
