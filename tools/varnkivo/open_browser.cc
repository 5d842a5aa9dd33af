// Starts xdg-open as nobody's child, so that the browser lives as long as it likes. It runs with the user's own rights
// and without the terminal.
#include "open_browser.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "rights.h"

namespace kivotool {

void OpenBrowser(const std::string& address) {
  if ((!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) || !isatty(STDIN_FILENO)) return;
  const pid_t child = fork();
  if (child == 0) {
    if (fork() == 0 && DropRaisedRights()) {
      setsid();
      const int nothing = open("/dev/null", O_RDWR);
      for (const int file : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(nothing, file);
      if (nothing > STDERR_FILENO) close(nothing);
      execlp("xdg-open", "xdg-open", address.c_str(), nullptr);
    }
    _exit(0);
  }
  if (child > 0) waitpid(child, nullptr, 0);
}

}  // namespace kivotool
