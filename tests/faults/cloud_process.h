// The cloud, in a process of its own: the one that traces must have no threads, and a cloud that is traced would be
// stopped with its client. Ends with the process that made it.
#pragma once

#include <sys/types.h>

#include <string>

namespace kivosim {
class Simulator;
}

namespace faults {

constexpr char kSerial[] = "2040VKN000001";
constexpr char kEmail[] = "ann@example.com";
constexpr char kPassword[] = "correct horse battery";
constexpr char kUserId[] = "1001";
constexpr char kAuthKey[] = "AuthKey-0123456789-of-ann";

class CloudProcess {
 public:
  /// Trusted from then on, and nobody else: with one CA in the system's bundle a request costs a tenth.
  CloudProcess();
  CloudProcess(const CloudProcess&) = delete;
  CloudProcess& operator=(const CloudProcess&) = delete;
  ~CloudProcess();
  /// As new: Ann's account with the auth key above, no API key seen.
  void Reset();

  /// Something done in that process, with a text to and one from it.
  using Work = std::string (*)(kivosim::Simulator& cloud, const std::string& text);
  std::string Run(Work work, const std::string& text = "");

 private:
  int channel_ = -1;
  pid_t process_ = -1;
};

}  // namespace faults
