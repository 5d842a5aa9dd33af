// New file, fsync, rename, fsync of the folder.
#include "store_by_hand.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#define BENCH_FOLDER "/usr/varn/etc/varnholt-account/private"

namespace bench {

bool StoreByHand(const std::string& text) {
  const int file = open(BENCH_FOLDER "/by-hand.new", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const bool written =
      file >= 0 && write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(file) == 0;
  close(file);
  if (!written || rename(BENCH_FOLDER "/by-hand.new", BENCH_FOLDER "/by-hand") != 0) return false;
  const int folder = open(BENCH_FOLDER, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool synced = folder >= 0 && fsync(folder) == 0;
  close(folder);
  return synced;
}

}  // namespace bench
