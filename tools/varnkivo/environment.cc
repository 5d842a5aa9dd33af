// Drops the TLS key log and the proxies from the environment of a process with raised ids. The library itself changes
// no environment, so this is the place, and it must come before the first request.
#include "environment.h"

#include <unistd.h>

#include <cstdlib>
#include <initializer_list>

namespace kivotool {

void DropUntrustedEnvironment() {
  if (getuid() == geteuid() && getgid() == getegid()) return;
  for (const char* name : {"SSLKEYLOGFILE", "http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy",
                           "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
    unsetenv(name);
  }
}

}  // namespace kivotool
