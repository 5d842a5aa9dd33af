// The signal handler and what it needs. Only async-signal-safe calls are allowed in Interrupted(): its message is made
// beforehand, and the process leaves by _exit, so that no destructor runs in the middle of a library call.
#include "interrupt.h"

#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

#include "exit_codes.h"

namespace kivotool {
namespace {

std::string gMessage;  // never changed once the handlers are installed
volatile std::sig_atomic_t gTerminal = -1;
volatile std::sig_atomic_t gDrawing = 0;
pid_t gMainProcess = 0;
termios gSaved;
sigset_t gCaught;  // empty until the handlers are installed

void RestoreTerminal() {
  if (gTerminal >= 0) tcsetattr(gTerminal, TCSANOW, &gSaved);
}

extern "C" void Interrupted(int) {
  if (getpid() != gMainProcess) _exit(kInterrupted);  // a child of the library: leave quietly, the parent speaks
  RestoreTerminal();
  if (gDrawing > 0) {
    kill(gDrawing, SIGKILL);
    waitpid(gDrawing, nullptr, 0);
    if (write(STDERR_FILENO, "\r\033[K", 4) < 0) _exit(kInterrupted);
  }
  if (write(STDERR_FILENO, gMessage.data(), gMessage.size()) < 0) _exit(kInterrupted);
  _exit(kInterrupted);
}

}  // namespace

void CatchInterrupts(const std::string& message) {
  gMessage = message;
  gMainProcess = getpid();
  struct sigaction action {};
  action.sa_handler = Interrupted;
  sigfillset(&action.sa_mask);
  sigemptyset(&gCaught);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction present {};
    // nohup and the like have their way: what is ignored stays ignored
    if (sigaction(signal, nullptr, &present) != 0 || present.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
    sigaddset(&gCaught, signal);
  }
}

EchoOff::EchoOff(int terminal) {
  if (tcgetattr(terminal, &gSaved) != 0) return;
  termios quiet = gSaved;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
  quiet.c_cc[VSUSP] = quiet.c_cc[VQUIT] = _POSIX_VDISABLE;  // a shell that takes over in between turns the echo on
  gTerminal = terminal;                                     // before the change, so that a signal in between finds it
  tcsetattr(terminal, TCSAFLUSH, &quiet);
}

EchoOff::~EchoOff() {
  RestoreTerminal();
  gTerminal = -1;
}

InterruptsHeld::InterruptsHeld() {
  sigprocmask(SIG_BLOCK, &gCaught, &before_);
  descriptor_ = signalfd(-1, &gCaught, SFD_CLOEXEC);
}

InterruptsHeld::~InterruptsHeld() {
  close(descriptor_);
  sigprocmask(SIG_SETMASK, &before_, nullptr);
}

void InterruptsHeld::ReleaseInChild() const { sigprocmask(SIG_SETMASK, &before_, nullptr); }

void SetDrawingProcess(int pid) { gDrawing = pid; }

}  // namespace kivotool
