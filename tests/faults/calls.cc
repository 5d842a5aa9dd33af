// The table. An error stands beside a call when the kernel can give it there: a rename that is interrupted, or a socket
// that finds no space on the disk, would test nothing. brk is left out: it has no error result.
#include "calls.h"

#include <fcntl.h>
#include <string.h>
#include <sys/syscall.h>

#include <cerrno>
#include <map>

namespace faults {
namespace {

struct Group {
  std::vector<int> errors;
  bool changesFile;
  std::map<long, const char*> calls;
};

#define CALL(name) \
  { SYS_##name, #name }
const Group kGroups[] = {
    {{EINTR, EIO, ENOSPC, EMFILE, ENOMEM, EACCES}, false, {CALL(open), CALL(openat)}},
    {{EIO, ENOMEM, EACCES},
     false,
     {CALL(stat), CALL(lstat), CALL(fstat), CALL(newfstatat), CALL(statx), CALL(access), CALL(faccessat),
      CALL(readlink), CALL(readlinkat), CALL(getdents64)}},
    {{EIO, ENOSPC, ENOMEM, EACCES},
     true,
     {CALL(rename), CALL(renameat2), CALL(unlink), CALL(unlinkat), CALL(link), CALL(linkat), CALL(mkdir), CALL(mkdirat),
      CALL(chmod), CALL(fchmod), CALL(fchmodat), CALL(chown), CALL(lchown), CALL(fchown), CALL(fchownat)}},
    {{EINTR, EIO, ENOSPC, ENOMEM}, true, {CALL(write), CALL(writev), CALL(pwrite64), CALL(ftruncate)}},
    {{EINTR, EIO, ENOSPC}, false, {CALL(fsync), CALL(fdatasync)}},
    {{EINTR, EIO, ENOMEM}, false, {CALL(read), CALL(readv), CALL(pread64)}},
    {{EINTR, ENOMEM}, false, {CALL(flock), CALL(poll), CALL(ppoll), CALL(select), CALL(epoll_wait), CALL(epoll_pwait)}},
    {{EMFILE, ENOMEM, EACCES}, false, {CALL(socket)}},
    {{EMFILE, ENOMEM}, false, {CALL(socketpair), CALL(pipe), CALL(pipe2), CALL(eventfd2), CALL(epoll_create1)}},
    {{EINTR, EIO, ENOMEM, EACCES},
     false,
     {CALL(connect), CALL(bind), CALL(sendto), CALL(sendmsg), CALL(sendmmsg), CALL(recvfrom), CALL(recvmsg)}},
    {{ENOMEM},
     false,
     {CALL(setsockopt), CALL(getsockopt), CALL(getsockname), CALL(mmap), CALL(fork), CALL(vfork), CALL(clone),
      CALL(clone3)}},
    {{EINTR, EMFILE}, false, {CALL(dup), CALL(dup2), CALL(dup3), CALL(fcntl)}},
    {{EIO, EMFILE, ENOMEM, EACCES}, false, {CALL(execve)}},
    {{EINTR}, false, {CALL(wait4), CALL(waitid), CALL(getrandom)}},
    {{ENOMEM, EACCES}, false, {CALL(setresuid), CALL(setresgid), CALL(setpgid)}}};

}  // namespace

Call FactsOf(long number, std::uint64_t second) {
  for (const Group& group : kGroups) {
    const auto found = group.calls.find(number);
    if (found == group.calls.end()) continue;
    Call call = {found->second, group.errors, group.changesFile};
    if (number == SYS_fcntl && second == F_SETLKW)
      call.errors = {EINTR, EACCES};
    else if (number == SYS_fcntl && second != F_DUPFD && second != F_DUPFD_CLOEXEC)
      call.errors = {};  // the rest cannot fail on an open descriptor
    return call;
  }
  return {"call" + std::to_string(number), {}, false};
}

std::string Text(const Injection& injection) {
  if (injection.kind == Kind::kMemory) return "memory:" + std::to_string(injection.allocation);
  const Point& at = injection.at;
  const std::string point = std::to_string(at.task) + "." + FactsOf(at.call, 0).name + "." + std::to_string(at.nth);
  if (injection.kind == Kind::kFail) return "fail:" + point + ":" + strerrorname_np(injection.error);
  return (injection.kind == Kind::kKill ? "kill:" : "kill-after:") + point;
}

}  // namespace faults
