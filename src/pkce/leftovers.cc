// Sweeps a folder for the files of dead writers. Touches these only; a writer that lives holds a lock or is quick.
#include "leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>
#include <memory>

namespace varnkivo {
namespace {

constexpr time_t kLeftoverAge = 60;     // seconds
constexpr std::size_t kRandomSize = 6;  // of mkstemp(3)

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

bool IsLeftover(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  struct stat facts = {};
  const bool leftover = file >= 0 && fstat(file, &facts) == 0 && S_ISREG(facts.st_mode) &&
                        time(nullptr) - facts.st_mtime > kLeftoverAge && flock(file, LOCK_EX | LOCK_NB) == 0;
  if (file >= 0) close(file);
  return leftover;
}

}  // namespace

void RemoveLeftovers(const std::string& directory, const std::string& prefix, const std::string& suffix) {
  const std::size_t size = prefix.size() + kRandomSize + suffix.size();
  const std::unique_ptr<DIR, DirectoryCloser> open(opendir(directory.c_str()));
  while (const dirent* entry = open ? readdir(open.get()) : nullptr) {
    const std::string name = entry->d_name, path = directory + "/" + name;
    const bool isTheirs = name.size() == size && name.compare(0, prefix.size(), prefix) == 0 &&
                          name.compare(size - suffix.size(), suffix.size(), suffix) == 0;
    if (isTheirs && IsLeftover(path)) unlink(path.c_str());
  }
}

}  // namespace varnkivo
