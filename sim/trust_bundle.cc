// Adding to a bundle. Normally by a new file renamed over the old; where the file is a mount of its own, as in a
// sandbox, that is refused, and the block, always of one size, is written in place with a single call.
#include "sim/trust_bundle.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace kivosim {
namespace {

const char kBegin[] = "# --- CA of the cloud simulator: begin\n";
const char kEnd[] = "# --- CA of the cloud simulator: end\n";
constexpr std::size_t kBlockSize = 1536;

[[noreturn]] void Fail(const std::string& file, const char* what) {
  throw std::runtime_error("cannot " + std::string(what) + " \"" + file + "\": " + std::strerror(errno));
}

std::string Block(const std::string& pem) {
  std::string block = kBegin + pem;
  const std::size_t used = block.size() + sizeof kEnd - 1;
  if (used + 2 > kBlockSize) throw std::runtime_error("CA certificate too long");
  return block + "#" + std::string(kBlockSize - used - 2, ' ') + "\n" + kEnd;
}

std::string ReadWhole(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  return text.str();
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Get() const { return fd_; }

 private:
  int fd_;
};

bool WriteAt(int fd, const std::string& bytes, std::size_t offset) {
  const ssize_t written = pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  return written == static_cast<ssize_t>(bytes.size());
}

bool ReplaceFile(const std::string& file, const std::string& text) {
  std::string name = file + ".XXXXXX";
  const Descriptor made(mkostemp(name.data(), O_CLOEXEC));
  struct stat old {};
  const bool existed = stat(file.c_str(), &old) == 0;
  bool done = made.Get() >= 0 && WriteAt(made.Get(), text, 0) &&
              fchmod(made.Get(), existed ? old.st_mode & 07777 : 0644) == 0 &&
              (!existed || fchown(made.Get(), old.st_uid, old.st_gid) == 0);
  done = done && rename(name.c_str(), file.c_str()) == 0;
  const int why = errno;
  if (!done && made.Get() >= 0) unlink(name.c_str());
  errno = why;
  return done;
}

void WriteInPlace(const std::string& file, const std::string& block, std::size_t offset) {
  const Descriptor target(open(file.c_str(), O_WRONLY | O_CLOEXEC));
  if (target.Get() < 0 || !WriteAt(target.Get(), block, offset)) Fail(file, "write");
}

}  // namespace

void TrustInBundle(const std::string& given, const std::string& caPem) {
  char resolved[PATH_MAX];
  const std::string file = realpath(given.c_str(), resolved) ? resolved : given;
  const std::string old = ReadWhole(file), block = Block(caPem);
  const std::size_t begin = old.find(kBegin);
  const bool replaces = begin != std::string::npos && old.find(kEnd, begin) == begin + kBlockSize - (sizeof kEnd - 1);
  const std::size_t offset = replaces ? begin : old.size();
  const std::string gap = !replaces && !old.empty() && old.back() != '\n' ? "\n" : "";
  std::string text = old.substr(0, offset) + gap + block;
  if (replaces) text += old.substr(offset + kBlockSize);
  if (ReplaceFile(file, text)) return;
  if (errno != EBUSY && errno != EXDEV && errno != EROFS && errno != EACCES) Fail(file, "replace");
  WriteInPlace(file, gap + block, offset);
}

}  // namespace kivosim
