// bench_print_token: prints the device's access token as `varnkivo token` does, with the same libraries loaded, but
// nothing of them used except the JSON parser.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "token_by_hand.h"

int main() {
  char record[8192];
  const int file = open("/usr/varn/etc/varnholt-account/private/user.conf", O_RDONLY | O_CLOEXEC);
  const ssize_t size = file < 0 ? -1 : read(file, record, sizeof record);
  close(file);
  const std::string token = bench::ReadTokenByHand();
  if (size <= 0 || token.empty()) return 1;
  std::puts(token.c_str());
  return std::fflush(stdout) == 0 ? 0 : 1;
}
