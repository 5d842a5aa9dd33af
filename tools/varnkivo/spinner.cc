// Draws the spinner from a child process. Touches stderr only. The child inherits the caller's memory: the secret that
// the caller holds is wiped in the child before anything else.
#include "spinner.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>

#include "interrupt.h"
#include "output.h"
#include "secrets.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr const char* kFrames[] = {"|", "/", "-", "\\"};
constexpr int kFrameMilliseconds = 120;

std::string Span(int seconds) {
  return seconds < 120 ? std::to_string(seconds) + " s" : std::to_string((seconds + 59) / 60) + " min";
}

[[noreturn]] void Draw(const std::string& what, int limitSeconds, int parent, const std::vector<Secret*>& inherited) {
  for (Secret* secret : inherited) secret->Wipe();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP})
    std::signal(signal, SIG_IGN);  // the parent ends us, after its word
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const auto start = std::chrono::steady_clock::now();
  for (unsigned frame = 0; getppid() == parent; ++frame) {
    const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
    std::fprintf(stderr, "\r\033[K%s %s ... %lld s (limit %s)", kFrames[frame % 4], what.c_str(),
                 static_cast<long long>(elapsed.count()), Span(limitSeconds).c_str());
    std::fflush(stderr);
    usleep(kFrameMilliseconds * 1000);
  }
  _exit(0);
}

}  // namespace

Spinner::Spinner(const std::string& what, int limitSeconds, bool allowed, const std::vector<Secret*>& inherited) {
  if (!allowed || !StderrIsLively()) return;
  const int parent = getpid();
  const std::string shown = Printable(what);
  pid_ = fork();
  if (pid_ == 0) Draw(shown, limitSeconds, parent, inherited);
  if (pid_ > 0) SetDrawingProcess(pid_);
}

Spinner::~Spinner() {
  if (pid_ <= 0) return;
  SetDrawingProcess(0);
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  std::fputs("\r\033[K", stderr);
}

}  // namespace kivotool
