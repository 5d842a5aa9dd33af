// Reading, replacing and locking files for the rest of the platform. A reader needs no lock: a file is only ever
// replaced by rename. Whoever changes the order of the steps in ReplaceFile gives up one of its promises.
#include "file_util.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "error.h"

namespace varnplatform {
namespace {

constexpr std::size_t kLargestFile = 16 << 20;
constexpr int kLockAttempts = 100;  // a lock file that is replaced this often under us is being fought over

bool ReadAll(int fd, std::string* content) {
  char chunk[8192];
  content->clear();
  for (;;) {
    const ssize_t got = read(fd, chunk, sizeof chunk);
    if (got == 0) return true;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return FailErrno(VLIB_ERR_READ) == 0;
    content->append(chunk, static_cast<std::size_t>(got));
    if (content->size() > kLargestFile) {
      errno = EFBIG;
      return Fail(VLIB_ERR_TOO_LARGE) == 0;
    }
  }
}

bool SyncFd(int fd) {
  while (fsync(fd) != 0) {
    if (errno == EINVAL || errno == EROFS) return true;  // a file system that has nothing to sync
    if (errno != EINTR) return FailErrno(VLIB_ERR_WRITE) == 0;
  }
  return true;
}

bool SyncDirectory(const std::string& directory) {
  const UniqueFd fd = OpenFile(directory, O_RDONLY | O_DIRECTORY);
  if (!fd) return errno == EACCES || FailErrno(VLIB_ERR_WRITE) == 0;  // writable and searchable, but not readable
  return SyncFd(fd.Get());
}

bool GiveOwner(int fd, const FileOwner& owner) {
  struct stat now {};
  if (fstat(fd, &now) != 0) return FailErrno(VLIB_ERR_WRITE) == 0;
  if ((now.st_uid != owner.uid || now.st_gid != owner.gid) && !GiveAway(fd, owner.uid, owner.gid)) {
    return FailErrno(VLIB_ERR_WRITE) == 0;
  }
  return fchmod(fd, owner.mode) == 0 || FailErrno(VLIB_ERR_WRITE) == 0;  // also undoes what the umask took
}

bool FillAndRename(int fd, const std::string& path, const std::string& temporary, std::string_view content,
                   const FileOwner& owner) {
  return GiveOwner(fd, owner) && WriteAll(fd, content) && SyncFd(fd) &&
         (rename(temporary.c_str(), path.c_str()) == 0 || FailErrno(VLIB_ERR_WRITE) == 0);
}

/// The lock file appears under its name only when its owner is right: a lock file of root in the account service's
/// directory would shut the service out.
bool CreateLockFile(const std::string& path, const std::string& lockPath) {
  struct stat directory {};
  if (stat(DirectoryOf(path).c_str(), &directory) != 0) return FailErrno(VLIB_ERR_OPEN) == 0;
  const std::string temporary = lockPath + "." + RandomSuffix();
  const UniqueFd fd = OpenFile(temporary, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!fd) return FailErrno(VLIB_ERR_OPEN) == 0;
  FileOwner owner{0600, geteuid(), getegid()};
  if (owner.uid == 0) owner = {0600, directory.st_uid, directory.st_gid};
  bool made = GiveOwner(fd.Get(), owner);
  if (made && link(temporary.c_str(), lockPath.c_str()) != 0 && errno != EEXIST) {
    made = FailErrno(VLIB_ERR_LOCK) == 0;
  }
  unlink(temporary.c_str());
  return made;
}

}  // namespace

bool GiveAway(int fd, uid_t uid, gid_t gid) { return fchown(fd, uid, gid) == 0 || errno == EINVAL; }

void UniqueFd::Reset(int fd) {
  const int saved = errno;
  if (fd_ >= 0) close(fd_);
  fd_ = fd;
  errno = saved;
}

UniqueFd OpenFile(const std::string& path, int flags, mode_t mode) {
  int fd;
  do {
    fd = open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (fd < 0 && errno == EINTR);
  return UniqueFd(fd);
}

bool ReadFile(const std::string& path, Links links, std::string* content, struct stat* status) {
  // Non-blocking: a fifo at this place must not hang the caller before it is refused.
  const int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | (links == Links::kRefuse ? O_NOFOLLOW : 0);
  const UniqueFd fd = OpenFile(path, flags);
  struct stat found {};
  if (!fd || fstat(fd.Get(), &found) != 0) return FailErrno(VLIB_ERR_OPEN) == 0;
  if (!S_ISREG(found.st_mode)) {
    errno = EINVAL;
    return Fail(VLIB_ERR_NOT_REGULAR) == 0;
  }
  if (status) *status = found;
  return ReadAll(fd.Get(), content);
}

bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return FailErrno(VLIB_ERR_WRITE) == 0;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool ReplaceFile(const std::string& path, const std::string& temporary, std::string_view content,
                 const FileOwner& owner) {
  const UniqueFd fd = OpenFile(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
  if (!fd) return FailErrno(VLIB_ERR_OPEN) == 0;
  if (!FillAndRename(fd.Get(), path, temporary, content, owner)) {
    unlink(temporary.c_str());
    return false;
  }
  return SyncDirectory(DirectoryOf(path));
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string HiddenSibling(const std::string& path, const char* suffix) {
  const std::size_t name = path.rfind('/') + 1;  // 0 where there is no slash
  return path.substr(0, name) + "." + path.substr(name) + suffix;
}

std::string RandomSuffix() {
  std::uint64_t value = 0;
  if (getrandom(&value, sizeof value, 0) != static_cast<ssize_t>(sizeof value)) {
    value = static_cast<std::uint64_t>(getpid());  // only a name: O_EXCL decides
  }
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(value));
  return text;
}

int CopyOut(std::string_view text, char* buffer, int size) {
  const std::size_t stored = std::min(text.size(), static_cast<std::size_t>(size) - 1);
  if (stored > 0) std::memcpy(buffer, text.data(), stored);
  buffer[stored] = '\0';
  return static_cast<int>(stored);
}

bool LockFd(int fd, int operation) {
  int result;
  do {
    result = flock(fd, operation);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

bool IsSameFile(const struct stat& held, const std::string& path) {
  struct stat named {};
  return lstat(path.c_str(), &named) == 0 && held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

bool SiblingLock::Acquire(const std::string& path) {
  const std::string lockPath = HiddenSibling(path, ".lock");
  for (int attempt = 0; attempt < kLockAttempts; ++attempt) {
    UniqueFd fd = OpenFile(lockPath, O_RDWR | O_NOFOLLOW | O_NONBLOCK);
    if (!fd && errno == ENOENT) {
      if (!CreateLockFile(path, lockPath)) return false;
      continue;
    }
    struct stat status {};
    if (!fd || fstat(fd.Get(), &status) != 0) return FailErrno(VLIB_ERR_LOCK) == 0;
    if (!S_ISREG(status.st_mode)) return Fail(VLIB_ERR_NOT_REGULAR) == 0;
    if (!LockFd(fd.Get(), LOCK_EX)) return FailErrno(VLIB_ERR_LOCK) == 0;
    struct stat held {};
    if (fstat(fd.Get(), &held) == 0 && IsSameFile(held, lockPath)) {
      fd_ = std::move(fd);
      return true;
    }
  }
  return Fail(VLIB_ERR_LOCK) == 0;
}

SiblingLock::~SiblingLock() {
  if (fd_) LockFd(fd_.Get(), LOCK_UN);  // not only close: a child forked meanwhile shares the lock
}

}  // namespace varnplatform
