// Plain file work. A log line travels through a socket and another process into its file: a line of our own behind
// them says that they have all arrived.
#include "device.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace faults {
namespace {

namespace fs = std::filesystem;

constexpr char kLog[] = "/var/log/syslog";
constexpr uid_t kAccountId = 934;

std::string Read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void Empty(const fs::path& folder) {
  for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
}

void InstallPlugin(const std::string& event) {
  const std::string folder = "/usr/varn/lib/plugins/kivo/" + event;
  fs::create_directories(folder);
  std::error_code ignored;
  fs::copy_file("/bin/true", folder + "/nothing", ignored);
}

void Send(const std::string& message) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  const int out = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const auto* to = reinterpret_cast<const sockaddr*>(&address);
  const bool sent = sendto(out, message.data(), message.size(), 0, to, sizeof address) >= 0;
  close(out);
  if (!sent) throw std::runtime_error("nobody takes log lines");
}

}  // namespace

const char* const kPrivate = "/usr/varn/etc/varnholt-account/private/";
const char* const kCron = "/etc/cron.d/";

Device::Device() : started_(std::time(nullptr)) {
  for (const auto& entry : fs::directory_iterator("/tmp")) notOurs_.insert(entry.path());
  for (const char* event : {"kivo/login", "kivo/logout"}) InstallPlugin(event);
  std::error_code ignored;
  fs::create_directories("/sys/fs/cgroup/systemd", ignored);
  std::ofstream("/sys/fs/cgroup/systemd/cgroup.procs") << "";  // a plain file in the sandbox; removal writes to it
}

void Device::Reset(const std::string& record) {
  for (const char* folder : {kPrivate, kCron, "/usr/varn/var/log"}) Empty(folder);
  for (const auto& entry : fs::directory_iterator("/tmp"))
    if (notOurs_.count(entry.path()) == 0) fs::remove_all(entry.path());
  if (truncate(kLog, 0) != 0) throw std::runtime_error("the log cannot be emptied");
  if (record.empty()) return;
  const std::string path = std::string(kPrivate) + "user.conf";
  std::ofstream(path, std::ios::binary) << record;
  if (chmod(path.c_str(), 0600) != 0 || chown(path.c_str(), kAccountId, kAccountId) != 0)
    throw std::runtime_error("the record cannot be prepared");
}

std::optional<std::string> Device::Record() const {
  const std::string path = std::string(kPrivate) + "user.conf", key = "last_query_time=\"";
  if (access(path.c_str(), F_OK) != 0) return std::nullopt;
  std::string text = Read(path);
  const std::size_t at = text.find(key);
  if (at == std::string::npos || std::atoll(text.c_str() + at + key.size()) < started_) return text;
  const std::size_t begin = at + key.size(), end = text.find('"', begin);
  return end == std::string::npos ? text : text.replace(begin, end - begin, "NOW");
}

std::map<std::string, File> Device::Files() const {
  std::map<std::string, File> files;
  for (const char* folder : {kPrivate, kCron, "/tmp/"}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      struct stat facts {};
      const std::string path = entry.path();
      if (notOurs_.count(path) != 0 || lstat(path.c_str(), &facts) != 0) continue;
      files[path] = {facts.st_mode, facts.st_uid, facts.st_gid, S_ISREG(facts.st_mode) ? Read(path) : ""};
    }
  }
  return files;
}

std::string Device::Log() {
  const std::string mark = "end-of-run-" + std::to_string(++logMarks_);
  Send(mark);
  for (int tries = 0; tries < 20000; ++tries) {
    std::string text = Read(kLog);
    const std::size_t at = text.find(mark);
    if (at != std::string::npos) return text.substr(0, at);
    usleep(100);
  }
  throw std::runtime_error("log lines do not arrive");
}

}  // namespace faults
