// A packet asks, with the address of a function that this process and its fork have in common and a text for it; a
// packet answers, after one that says that the cloud is there.
#include "cloud_process.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace faults {
namespace {

int gChannel = -1;

void Send(const std::string& packet) {
  if (send(gChannel, packet.data(), packet.size(), MSG_NOSIGNAL) < 0) throw std::runtime_error("the cloud has ended");
}

/// An empty packet is the end of the channel.
std::string Receive() {
  char packet[8192];
  const ssize_t size = recv(gChannel, packet, sizeof packet, 0);
  return std::string(packet, size > 0 ? static_cast<std::size_t>(size) : 0);
}

std::string Answer() {
  const std::string packet = Receive();
  if (packet.empty()) throw std::runtime_error("the cloud has ended");
  return packet.substr(1);
}

[[noreturn]] void Serve() {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::ofstream("/etc/ssl/certs/ca-certificates.crt", std::ios::trunc).close();
  kivosim::Simulator cloud;
  cloud.Start();
  Send("+");
  for (std::string packet; !(packet = Receive()).empty();) {
    Work work;
    std::memcpy(&work, packet.data(), sizeof work);
    Send("+" + work(cloud, packet.substr(sizeof work)));
  }
  _exit(0);
}

}  // namespace

void StartCloud() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) throw std::runtime_error("no channel");
  const bool isCloud = fork() == 0;
  gChannel = ends[isCloud ? 0 : 1];
  close(ends[isCloud ? 1 : 0]);
  if (isCloud) Serve();  // what is thrown there ends that process, and is told
  Answer();
}

std::string InCloud(Work work, const std::string& text) {
  std::string packet(sizeof work, '\0');
  std::memcpy(packet.data(), &work, sizeof work);
  Send(packet + text);
  return Answer();
}

std::string ResetCloud(kivosim::Simulator& cloud, const std::string&) {
  cloud.Reset();
  kivosim::Account ann{kEmail, kPassword, kUserId};
  ann.authKeys[kSerial] = kAuthKey;
  cloud.AddAccount(ann);
  return "";
}

}  // namespace faults
