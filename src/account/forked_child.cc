// Replaces inherited descriptors in a forked child. Touches the descriptor table of the child only.
// Where /proc is not mounted the descriptors stay: the child then holds them until it ends.
#include "forked_child.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

namespace varnkivo {
namespace {

struct DirectoryCloser {
  void operator()(DIR* directory) const noexcept { closedir(directory); }
};

}  // namespace

void LetGoOfDescriptors(int keep) {
  const std::unique_ptr<DIR, DirectoryCloser> directory(opendir("/proc/self/fd"));
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (!directory || nothing < 0) return;
  const int own = dirfd(directory.get());
  while (const dirent* entry = readdir(directory.get())) {
    const int file = std::atoi(entry->d_name);  // "." and ".." give 0
    if (file > 2 && file != keep && file != own && file != nothing) dup3(nothing, file, O_CLOEXEC);
  }
  close(nothing);
}

}  // namespace varnkivo
