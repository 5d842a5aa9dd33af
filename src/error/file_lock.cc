// Serialises processes on a lock file: makes sure the file exists, then polls the platform's lock until a deadline.
// Touches the lock file and, for an instant, the umask. Lock files lie in /tmp, where anyone may have planted a link or
// own the file already: hence never a link followed, and O_CREAT only when the file is absent (kernels refuse O_CREAT
// on another user's file in a sticky directory even to root).
#include "file_lock.h"

#include "internal/log.h"
#include "varn/platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <optional>
#include <random>

namespace varnkivo {
namespace {

constexpr const char* kSource = "file_lock";
constexpr int kOpenFlags = O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;
constexpr mode_t kMode = 0666;  // for every user: 0777 less 0111

/// For a file system without unnamed files, and a process that does not get at its /proc.
int CreateNamed(const char* path) {
  const int file = open(path, kOpenFlags | O_CREAT | O_EXCL, kMode);
  if (file >= 0) fchmod(file, kMode);
  return file;
}

/// Makes the file with its mode whatever the umask, which is not touched: it belongs to all threads. The name comes
/// last, because a file that other users may not lock would keep them out for ever.
int Create(const char* path) {
  const std::string text = path, folder = text.substr(0, text.rfind('/') + 1);
  const int file = open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kMode);
  if (file < 0) return errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL ? CreateNamed(path) : -1;
  char unnamed[32];
  std::snprintf(unnamed, sizeof unnamed, "/proc/self/fd/%d", file);
  if (fchmod(file, kMode) == 0 && linkat(AT_FDCWD, unnamed, AT_FDCWD, path, AT_SYMLINK_FOLLOW) == 0) return file;
  const int error = errno;
  close(file);
  if (error != EEXIST) return CreateNamed(path);
  errno = error;
  return -1;
}

int OpenOrCreate(const char* path) {
  int file = open(path, kOpenFlags);
  if (file >= 0 || errno != ENOENT) return file;
  file = Create(path);
  return file < 0 && errno == EEXIST ? open(path, kOpenFlags) : file;  // somebody else was faster
}

/// Makes sure that `path` is a regular file that can be locked.
bool PrepareFile(const char* path) {
  const int file = OpenOrCreate(path);
  struct stat facts = {};
  const bool usable = file >= 0 && fstat(file, &facts) == 0 && S_ISREG(facts.st_mode);
  if (!usable) LogError(kSource, "Failed to open file: %s", path);
  if (file >= 0 && close(file) != 0 && errno != EINTR) {  // interrupted or not, Linux has released the descriptor
    LogError(kSource, "Failed to close file: %s", path);
    return false;
  }
  return usable;
}

/// Random pauses, so that waiters do not march in step. Seeded only when a first attempt failed.
class BackOff {
 public:
  useconds_t Next() {
    if (!generator_) generator_.emplace(Seed());
    return std::uniform_int_distribution<useconds_t>(50000, 100000)(*generator_);
  }

 private:
  static std::minstd_rand0::result_type Seed() {
    try {
      const auto value = std::random_device("default")() % std::minstd_rand0::modulus;
      return static_cast<std::minstd_rand0::result_type>(value == 0 ? 1 : value);
    } catch (const std::exception&) {  // out of descriptors, say: the pauses still differ from now on
      return 1;
    }
  }
  std::optional<std::minstd_rand0> generator_;
};

}  // namespace

FileLock::FileLock(const std::string& path, bool shared) : path_(path), shared_(shared) {}

FileLock::~FileLock() { Unlock(); }

bool FileLock::Lock(unsigned int timeoutSeconds) {
  if (!PrepareFile(path_.c_str())) return false;
  Unlock();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  BackOff backOff;
  while (std::chrono::steady_clock::now() < deadline) {
    int handle = -1;
    if (VLIBCFileLockByFile(path_.c_str(), !shared_, &handle) >= 0) {
      handle_ = handle;
      return true;
    }
    usleep(backOff.Next());
  }
  return false;
}

void FileLock::Unlock() {
  if (handle_ < 0) return;
  VLIBCFileUnlockByFile(handle_);
  handle_ = -1;
}

std::string FileLock::GetPath() const { return path_; }

}  // namespace varnkivo
