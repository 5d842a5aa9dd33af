// Files as this platform handles them: read whole, replaced in one step, locked beside. What fails has recorded its
// error. Every descriptor is close-on-exec, and no file that is created or locked is reached through a link.
#ifndef VARNPLATFORM_FILE_UTIL_H
#define VARNPLATFORM_FILE_UTIL_H

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace varnplatform {

constexpr uid_t kAccountUid = 934;  // the account service, owner of what is private
constexpr gid_t kAccountGid = 934;

class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  ~UniqueFd() { Reset(); }
  UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  int Get() const { return fd_; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void Reset(int fd = -1);  // closes; keeps errno
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

/// open(2) that goes on after a signal, close-on-exec. Records nothing.
UniqueFd OpenFile(const std::string& path, int flags, mode_t mode = 0);

enum class Links { kFollow, kRefuse };

/// The content of a regular file of at most 16 MiB, and its stat where `status` is given. errno is ENOENT where there
/// is no such file.
bool ReadFile(const std::string& path, Links links, std::string* content, struct stat* status = nullptr);

bool WriteAll(int fd, std::string_view bytes);

struct FileOwner {
  mode_t mode;
  uid_t uid;
  gid_t gid;
};

/// Makes `content` the file's content in one step that survives a crash: written to `temporary` (in the same
/// directory), which is 0600 from its first byte, given owner and mode, synced, renamed, directory synced. Where a
/// step fails the old file is untouched and `temporary` is gone.
bool ReplaceFile(const std::string& path, const std::string& temporary, std::string_view content,
                 const FileOwner& owner);

std::string DirectoryOf(const std::string& path);
/// "/dir/.name" + suffix for "/dir/name".
std::string HiddenSibling(const std::string& path, const char* suffix);
/// Sixteen hexadecimal digits from the system's random source.
std::string RandomSuffix();

/// Copies with NUL, cut to `size`. Number of bytes stored, without the NUL.
int CopyOut(std::string_view text, char* buffer, int size);

/// One writer at a time of the file `path`, across processes and threads, through ".name.lock" beside it: the file
/// itself is replaced at every write, so a lock on it would protect nothing.
class SiblingLock {
 public:
  /// Waits for the lock; creates the lock file, 0600 and the directory owner's, where there is none.
  bool Acquire(const std::string& path);
  SiblingLock() = default;
  ~SiblingLock();
  SiblingLock(const SiblingLock&) = delete;
  SiblingLock& operator=(const SiblingLock&) = delete;

 private:
  UniqueFd fd_;
};

/// Makes a file another's. It stays its creator's in a user namespace that does not know the other.
bool GiveAway(int fd, uid_t uid, gid_t gid);
/// flock(2) that goes on after a signal.
bool LockFd(int fd, int operation);
/// Whether the path still names the file whose facts are `held`.
bool IsSameFile(const struct stat& held, const std::string& path);

}  // namespace varnplatform

#endif  // VARNPLATFORM_FILE_UTIL_H
