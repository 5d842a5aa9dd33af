// Forks, gives the child a clean start, passes on what it logs, and waits for it. Touches the child's own state only.
// The child must never return into the caller's code, and must not hold the caller's locks when the caller dies.
#include "forked_child.h"

#include "internal/log.h"
#include "varn/platform.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <initializer_list>
#include <memory>

namespace varnkivo {
namespace {

constexpr unsigned int kMostSeconds = 300;
constexpr int kLookAfterMs = 500;  // how long a silent child is believed to be alive

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

/// Lets go of every descriptor but 0, 1, 2 and `keep`. Their numbers stay taken, by /dev/null: syslog's socket may be
/// among them, and what syslog sends must not land in a file that happens to get its number. Without /proc they stay.
void LetGoOfDescriptors(int keep) {
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir("/proc/self/fd"));
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (!directory || nothing < 0) return;
  const int own = dirfd(directory.get());
  while (const dirent* entry = readdir(directory.get())) {
    const auto file = static_cast<int>(std::strtol(entry->d_name, nullptr, 10));  // "." and ".." give 0
    if (file > 2 && file != keep && file != own && file != nothing) dup3(nothing, file, O_CLOEXEC);
  }
  close(nothing);
}

/// The caller's dispositions and mask are not the child's: it waits for plug-ins, and its alarm must reach it.
void TakeDefaultSignals() {
  for (const int number : {SIGALRM, SIGCHLD, SIGPIPE, SIGTERM}) signal(number, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void RunAsChild(int socket, void (*work)()) noexcept {
  TakeDefaultSignals();
  alarm(kMostSeconds);
  LetGoOfDescriptors(socket);
  LogIntoSocket(socket);
  work();
  send(socket, "", 0, MSG_NOSIGNAL);  // an empty packet: the end, whoever else still holds the socket
  _exit(-1);
}

/// -1 as the status where the caller has children reaped elsewhere. 0 while the child lives and `options` say not to
/// wait for it.
pid_t WaitFor(pid_t child, int& status, int options) {
  pid_t waited = 0;
  do waited = waitpid(child, &status, options);
  while (waited < 0 && errno == EINTR);
  if (waited < 0) status = -1;
  return waited;
}

int LogAndWaitFor(pid_t child, int socket) {
  int status = 0;
  pollfd readable = {socket, POLLIN, 0};
  for (;;) {
    const int ready = poll(&readable, 1, kLookAfterMs);
    if (ready > 0 && !LogFromSocket(socket)) break;
    if (ready == 0 && WaitFor(child, status, WNOHANG) != 0) return status;  // it died without a word
  }
  WaitFor(child, status, 0);
  return status;
}

}  // namespace

int RunInChild(void (*work)()) {
  int sockets[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) return -1;
  const pid_t child = VLIBCProcFork();
  if (child == 0) RunAsChild(sockets[1], work);
  close(sockets[1]);
  const int status = child > 0 ? LogAndWaitFor(child, sockets[0]) : -1;
  close(sockets[0]);
  return status;
}

}  // namespace varnkivo
