// varnkivo-console: a device's own account page, as an example of a sign-in by browser. Prints its address when it is
// ready and serves until SIGTERM or SIGINT: status 0 then, 1 when it cannot start, 2 for a wrong command line.
// A request under way is finished first, which can take two minutes; the same signal again ends the process at once.
#include <semaphore.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "server.h"

namespace {

sem_t ending;

/// -1: not a port.
int Port(const std::string& text) {
  if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos) return -1;
  const int port = std::atoi(text.c_str());
  return port > 65535 ? -1 : port;
}

void CatchSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { sem_post(&ending); };
  action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

}  // namespace

int main(int argc, char** argv) {
  const int wanted = argc == 1 ? 8380 : argc == 3 && std::string(argv[1]) == "--port" ? Port(argv[2]) : -1;
  if (wanted < 0) {
    std::fputs("usage: varnkivo-console [--port N]   (0: any free port; default 8380)\n", stderr);
    return 2;
  }
  sem_init(&ending, 0, 0);
  CatchSignals();
  console::Server server;
  const int port = server.Bind(wanted);
  if (port < 0) {
    std::fprintf(stderr, "varnkivo-console: cannot listen on 127.0.0.1:%d\n", wanted);
    return 1;
  }
  std::printf("http://127.0.0.1:%d/\n", port);
  std::fflush(stdout);
  std::thread serving([&server] {
    server.Run();
    sem_post(&ending);  // also when it cannot go on
  });
  while (sem_wait(&ending) != 0) {
  }
  server.Stop();
  serving.join();
  return 0;
}
