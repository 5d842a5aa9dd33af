// fork and exec. Everything that allocates happens before the fork: another thread may hold any lock at that moment,
// and the child has nobody to release it. Why exec failed comes back over a close-on-exec pipe.
#include "child_process.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <pthread.h>

#include <cerrno>
#include <csignal>

#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

constexpr int kReportFd = 3;  // in the child, until exec closes it

std::mutex gTurn;
thread_local bool tHasTurn = false;  // a fork of our own, which has the turn already

void TakeTurn() {
  if (!tHasTurn) gTurn.lock();
}

void EndTurn() {
  if (!tHasTurn) gTurn.unlock();
}

std::vector<char*> Pointers(const std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (const std::string& text : texts) pointers.push_back(const_cast<char*>(text.c_str()));
  pointers.push_back(nullptr);
  return pointers;
}

void CloseFrom(unsigned int first) {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, first, ~0U, 0U) == 0) return;
#endif
  rlimit limit{};
  const rlim_t last = getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < 65536 ? limit.rlim_cur : 65536;
  for (rlim_t fd = first; fd < last; ++fd) close(static_cast<int>(fd));
}

/// System calls, not the C library's functions: those ask all threads of the process to change too.
bool RaiseIds() {
#ifdef SYS_setresuid32
  constexpr long kSetUid = SYS_setresuid32, kSetGid = SYS_setresgid32, kSetGroups = SYS_setgroups32;
#else
  constexpr long kSetUid = SYS_setresuid, kSetGid = SYS_setresgid, kSetGroups = SYS_setgroups;
#endif
  // A user namespace may deny its root the groups; it has none there but those of who made it.
  return syscall(kSetUid, 0, 0, 0) == 0 && (syscall(kSetGroups, 0, nullptr) == 0 || errno == EPERM) &&
         syscall(kSetGid, 0, 0, 0) == 0;
}

/// System calls again: the C library's functions leave out the two signals it keeps for itself, and those are inherited
/// ignored or blocked as well.
void ResetSignals() {
  const struct {
    unsigned long words[4];
  } standard = {};  // as the kernel lays out a sigaction: SIG_DFL, no flags, no mask
  constexpr std::size_t kSetSize = _NSIG / 8;
  const unsigned char none[kSetSize] = {};
  for (int signal = 1; signal < _NSIG; ++signal) syscall(SYS_rt_sigaction, signal, &standard, nullptr, kSetSize);
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, none, nullptr, kSetSize);
}

bool PlaceDescriptors(const Child& child, int report) {
  for (int target = 0; target < 3; ++target) {
    if (child.descriptors[target] >= 0 && dup2(child.descriptors[target], target) < 0) return false;
  }
  if (report != kReportFd && dup3(report, kReportFd, O_CLOEXEC) < 0) return false;
  CloseFrom(kReportFd + 1);
  return true;
}

[[noreturn]] void RunChild(const Child& child, char* const* arguments, char* const* environment, int report) {
  const bool ready = PlaceDescriptors(child, report);
  if (ready && (!child.ownGroup || setpgid(0, 0) == 0) &&
      (!child.raiseIds || RaiseIds() || (getuid() == kAccountUid && geteuid() == kAccountUid))) {
    ResetSignals();
    execve(child.program.c_str(), arguments, environment);
  }
  const int error = errno;
  while (write(ready ? kReportFd : report, &error, sizeof error) < 0 && errno == EINTR) {
  }
  _exit(127);
}

/// The errno that the child reports, 0 where exec closed the pipe.
int ReadReport(int fd) {
  int error = 0;
  ssize_t got;
  do {
    got = read(fd, &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(sizeof error) ? error : 0;
}

void Reap(pid_t pid) {
  while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

pid_t StartChild(const Child& child) {
  std::vector<std::string> texts = child.arguments;
  texts.insert(texts.begin(), child.program);
  const std::vector<char*> arguments = Pointers(texts);
  std::vector<char*> given;
  if (child.environment) given = Pointers(*child.environment);
  char* const* environment = child.environment ? given.data() : environ;

  const ForkTurn turn;
  int ends[2];
  if (!MakePipe(ends)) return -1;
  const UniqueFd reader(ends[0]);
  UniqueFd writer(ends[1]);
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // no handler of the caller may run in the child
  const pid_t pid = fork();
  if (pid == 0) RunChild(child, arguments.data(), environment, writer.Get());
  const int forkError = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (pid < 0) {
    errno = forkError;
    return FailErrno(VLIB_ERR_FORK);
  }
  writer.Reset();
  const int error = ReadReport(reader.Get());
  if (error == 0) return pid;
  Reap(pid);
  errno = error;
  return FailErrno(VLIB_ERR_EXEC);
}

int ExitStatus(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : Fail(VLIB_ERR_EXEC); }

int WaitForExit(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return FailErrno(VLIB_ERR_SYSTEM);  // the caller reaps all children, or ignores SIGCHLD
  }
  return ExitStatus(status);
}

std::vector<std::string> ArgumentTexts(const char* first, va_list rest) {
  std::vector<std::string> texts;
  for (const char* text = first; text; text = va_arg(rest, const char*)) texts.emplace_back(text);
  return texts;
}

ForkTurn::ForkTurn() {
  static std::once_flag once;
  std::call_once(once, [] { pthread_atfork(TakeTurn, EndTurn, EndTurn); });
  gTurn.lock();
  tHasTurn = true;
}

ForkTurn::~ForkTurn() {
  tHasTurn = false;
  gTurn.unlock();
}

bool MakePipe(int ends[2]) {
  int raw[2];
  if (pipe2(raw, O_CLOEXEC) != 0) return FailErrno(VLIB_ERR_SYSTEM) == 0;
  UniqueFd moved[2];
  for (int i = 0; i < 2; ++i) moved[i].Reset(raw[i] > 2 ? raw[i] : fcntl(raw[i], F_DUPFD_CLOEXEC, 3));
  const bool made = moved[0] && moved[1];
  if (!made) FailErrno(VLIB_ERR_SYSTEM);
  for (const int fd : raw) {
    if (fd <= 2) close(fd);
  }
  for (int i = 0; made && i < 2; ++i) ends[i] = moved[i].Release();
  return made;
}

}  // namespace varnplatform
