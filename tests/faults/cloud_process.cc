// One byte asks for a reset, one byte answers; the end of the channel ends the process.
#include "cloud_process.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "sim/simulator.h"

namespace faults {
namespace {

[[noreturn]] void Serve(int channel) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::trunc).close();
    kivosim::Simulator cloud;
    cloud.Start();
    for (char byte = 0; write(channel, &byte, 1) == 1 && read(channel, &byte, 1) == 1;) {
      cloud.Reset();
      kivosim::Account ann{kEmail, kPassword, kUserId};
      ann.authKeys[kSerial] = kAuthKey;
      cloud.AddAccount(ann);
    }
    _exit(0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cloud: %s\n", error.what());
    _exit(1);
  }
}

void Await(int channel) {
  char byte;
  if (read(channel, &byte, 1) != 1) throw std::runtime_error("the cloud has ended");
}

}  // namespace

CloudProcess::CloudProcess() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no channel");
  process_ = fork();
  if (process_ == 0) {
    close(ends[0]);
    Serve(ends[1]);
  }
  close(ends[1]);
  channel_ = ends[0];
  Await(channel_);
}

CloudProcess::~CloudProcess() {
  close(channel_);
  waitpid(process_, nullptr, 0);
}

void CloudProcess::Reset() {
  if (send(channel_, "", 1, MSG_NOSIGNAL) == 1) Await(channel_);
}

}  // namespace faults
