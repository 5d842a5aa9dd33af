// The kernel lock below the library's lock files. flock(2) and not a record lock: a record lock goes when any other
// descriptor of the file is closed, and does not exclude a second handle of the same process.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

int TryLock(const char* path, bool exclusive, int* handle) {
  UniqueFd fd = OpenFile(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);  // never creates
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0) return FailErrno(VLIB_ERR_OPEN);
  if (!S_ISREG(status.st_mode)) return Fail(VLIB_ERR_NOT_REGULAR);
  if (!LockFd(fd.Get(), (exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB)) {
    return errno == EWOULDBLOCK ? Fail(VLIB_ERR_LOCK_HELD) : FailErrno(VLIB_ERR_LOCK);
  }
  // A cleaner may have replaced the file between open and lock: then the next one would lock another file.
  if (!IsSameFile(status, path)) {
    LockFd(fd.Get(), LOCK_UN);
    return Fail(VLIB_ERR_LOCK);
  }
  *handle = fd.Release();
  return 0;
}

}  // namespace
}  // namespace varnplatform

using namespace varnplatform;

int VLIBCFileLockByFile(const char* path, int exclusive, int* handle) {
  if (handle) *handle = -1;
  if (!path || !handle) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] { return TryLock(path, exclusive != 0, handle); });
}

int VLIBCFileUnlockByFile(int handle) {
  if (handle < 0) return Fail(VLIB_ERR_BAD_PARAMETER);
  // Not only close: a forked child has the same open file, and with it the lock.
  const bool released = LockFd(handle, LOCK_UN);
  return close(handle) == 0 && released ? 0 : FailErrno(VLIB_ERR_LOCK);
}
