// A packet asks, with the address of a function that this process and its fork have in common and a text for it; a
// packet answers. The end of the channel ends the process.
#include "cloud_process.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "sim/simulator.h"

namespace faults {
namespace {

constexpr std::size_t kMostBytes = 8192;

std::string ResetCloud(kivosim::Simulator& cloud, const std::string&) {
  cloud.Reset();
  kivosim::Account ann{kEmail, kPassword, kUserId};
  ann.authKeys[kSerial] = kAuthKey;
  cloud.AddAccount(ann);
  return "";
}

bool Send(int channel, const std::string& packet) {
  return send(channel, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size());
}

/// An empty packet is the end of the channel.
bool Receive(int channel, std::string& packet) {
  packet.resize(kMostBytes);
  const ssize_t size = recv(channel, packet.data(), packet.size(), 0);
  packet.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
  return size > 0;
}

[[noreturn]] void Serve(int channel) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  try {
    std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::trunc).close();
    kivosim::Simulator cloud;
    cloud.Start();
    std::string packet = "ready";
    while (Send(channel, packet) && Receive(channel, packet)) {
      CloudProcess::Work work;
      std::memcpy(&work, packet.data(), sizeof work);
      packet = "+" + work(cloud, packet.substr(sizeof work));
    }
    _exit(0);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "cloud: %s\n", error.what());
    _exit(1);
  }
}

std::string Await(int channel) {
  std::string packet;
  if (!Receive(channel, packet)) throw std::runtime_error("the cloud has ended");
  return packet.substr(1);
}

}  // namespace

CloudProcess::CloudProcess() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no channel");
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

void CloudProcess::Reset() { Run(&ResetCloud); }

std::string CloudProcess::Run(Work work, const std::string& text) {
  std::string packet(sizeof work, '\0');
  std::memcpy(packet.data(), &work, sizeof work);
  if (!Send(channel_, packet + text)) throw std::runtime_error("the cloud has ended");
  return Await(channel_);
}

}  // namespace faults
