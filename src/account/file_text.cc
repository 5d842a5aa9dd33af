// Reads and writes small files whole. What lies under a name may have been put there by anybody: a fifo, a device, a
// file without end; none of them may hold the caller up or fill its memory.
#include "internal/file_text.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace varnkivo {
namespace {

constexpr std::size_t kBlock = 8192;

/// Keeps errno.
struct Closer {
  int file;
  ~Closer() {
    const int error = errno;
    close(file);
    errno = error;
  }
};

/// The longer text in a memory of its own; what the old one held is wiped with it.
void Grow(Wiped& text) {
  Wiped longer(text.size() * 2, '\0');
  text.copy(longer.data(), text.size());
  text.swap(longer);
}

/// `expected` bytes, or until the end of a file that does not tell its size.
std::optional<Wiped> ReadAll(int file, std::size_t expected) {
  Wiped text(expected == 0 ? kBlock : std::min(expected, kMostFileBytes) + 1, '\0');
  std::size_t size = 0;
  for (;;) {
    const std::size_t room = text.size() - size;
    const ssize_t length = read(file, text.data() + size, room);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) return std::nullopt;
    size += static_cast<std::size_t>(length);
    if (size > kMostFileBytes) {
      errno = EFBIG;
      return std::nullopt;
    }
    const bool isAsLongAsTold = size == expected && static_cast<std::size_t>(length) < room;
    if (length == 0 || isAsLongAsTold) break;
    if (size == text.size()) Grow(text);
  }
  text.resize(size);
  return text;
}

std::optional<Wiped> Read(const char* path, int flags, bool (*isAcceptable)(const struct stat&)) {
  const int file = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | flags);
  if (file < 0) return std::nullopt;
  const Closer closer{file};
  struct stat facts = {};
  if (fstat(file, &facts) == 0 && isAcceptable(facts)) return ReadAll(file, static_cast<std::size_t>(facts.st_size));
  errno = EINVAL;
  return std::nullopt;
}

}  // namespace

std::optional<Wiped> ReadFileText(const char* path, Links links) {
  return Read(path, links == Links::kRefuse ? O_NOFOLLOW : 0,
              [](const struct stat& facts) { return S_ISREG(facts.st_mode); });
}

std::optional<Wiped> ReadFileText(const char* path, bool (*isAcceptable)(const struct stat& facts)) {
  return Read(path, O_NOFOLLOW, isAcceptable);
}

bool WriteAll(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t length = write(file, text.data() + done, text.size() - done);
    if (length < 0 && errno != EINTR) return false;
    if (length > 0) done += static_cast<std::size_t>(length);
  }
  return true;
}

}  // namespace varnkivo
