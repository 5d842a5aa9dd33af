// The sign-in by browser. Nothing is stored before the code has come back, so that an interruption leaves nothing
// behind.
#include "browser_login.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "authorization.h"
#include "failure.h"
#include "output.h"
#include "qr_code.h"
#include "spinner.h"

namespace kivotool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kAgain[] = "varnkivo login";
constexpr int kSeconds = 4 * 30 + 31;  // code, token, auth key, then the query
constexpr int kMinutes = 10;           // as long as the account centre keeps a sign-in open
constexpr std::size_t kLongestLine = 16384;
constexpr char kPrompt[] = "Then paste the address that it leads to, or the code it shows: ";

/// Opens the address where there is a display; says nothing where that does not work, as the address is on the screen.
void OpenBrowser(const std::string& address) {
  if ((!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) || !isatty(STDIN_FILENO)) return;
  const pid_t child = fork();
  if (child == 0) {
    if (fork() == 0) {  // nobody's child: it lives as long as it likes
      setsid();
      for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(file);
      execlp("xdg-open", "xdg-open", address.c_str(), nullptr);
    }
    _exit(0);
  }
  if (child > 0) waitpid(child, nullptr, 0);
}

void ShowAddress(const std::string& address) {
  std::fprintf(stderr, "Open this address in a browser, here or on your phone, and sign in:\n\n  %s\n\n",
               address.c_str());
  if (StderrIsLively()) std::fprintf(stderr, "%s\n", QrCode(address).c_str());
  std::fprintf(stderr, "You have %d minutes. %s", kMinutes, kPrompt);
  std::fflush(stderr);
}

[[noreturn]] void TooLate() {
  throw Failure{kFailed,
                std::nullopt,
                "Nothing came back within " + std::to_string(kMinutes) + " minutes.",
                Retry::kYes,
                "Nothing; nothing was stored.",
                kAgain};
}

/// Waits for input, and on a terminal says each minute how long is left.
void AwaitInput(Clock::time_point end) {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(end - Clock::now()).count();
    if (left <= 0) TooLate();
    const int wait = static_cast<int>(left % 60 == 0 ? 60 : left % 60);
    const int ready = poll(&input, 1, wait * 1000);
    if (ready > 0) return;
    if (ready == 0 && isatty(STDIN_FILENO)) std::fprintf(stderr, "\n(%lld min left) %s", (left - wait) / 60LL, kPrompt);
  }
}

/// One line, byte by byte: what follows may be for somebody else.
std::string ReadLine() {
  const auto end = Clock::now() + std::chrono::minutes(kMinutes);
  std::string line;
  char c = 0;
  while (line.size() < kLongestLine) {
    AwaitInput(end);
    if (read(STDIN_FILENO, &c, 1) != 1 || c == '\n') break;
    line += c;
  }
  return line;
}

}  // namespace

Json::Value SignInByBrowser(bool quiet) {
  try {
    const varnkivo::AccountPkceService service;
    const Json::Value config = service.GetLoginPkceConfig();
    const AuthorizationRequest request = NewAuthorizationRequest();
    const std::string address = AuthorizationUrl(config, request);
    ShowAddress(address);
    OpenBrowser(address);
    const std::string code = CodeFromPasted(ReadLine(), request.state, kAgain);
    const Spinner spinner("Signing in", kSeconds, !quiet);
    return service.Login({"", code, request.verifier, config["login_redirect_uri"].asString()});
  } catch (const varnkivo::KivoException& error) {
    throw Explain(error.GetCode(), {Situation::Doing::kBrowserLogin, kAgain, error.what(), ""});
  }
}

}  // namespace kivotool
