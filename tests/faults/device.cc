// Plain file work. A log line travels through a socket and another process into its file: a line of our own behind
// them says that they have all arrived.
#include "device.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>

namespace faults {
namespace {

namespace fs = std::filesystem;

constexpr char kLog[] = "/var/log/syslog";
constexpr uid_t kAccountId = 934;

std::set<std::string> gNotOurs;
const time_t gStarted = std::time(nullptr);

std::string Read(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

void PrepareDevice() {
  for (const auto& entry : fs::directory_iterator("/tmp")) gNotOurs.insert(entry.path());
  for (const std::string folder : {"/usr/varn/lib/plugins/kivo/kivo/login", "/usr/varn/lib/plugins/kivo/kivo/logout"}) {
    fs::create_directories(folder);
    fs::copy_file("/bin/true", folder + "/nothing", fs::copy_options::overwrite_existing);
  }
  std::error_code ignored;
  fs::create_directories("/sys/fs/cgroup/systemd", ignored);
  std::ofstream("/sys/fs/cgroup/systemd/cgroup.procs") << "";  // a plain file in the sandbox; removal writes to it
  openlog(nullptr, LOG_NDELAY, LOG_USER);  // its socket is there from the start, whether a line follows or not
}

void ResetDevice(const std::string& record) {
  for (const char* folder : {kPrivate, kCron, "/usr/varn/var/log", "/tmp"})
    for (const auto& entry : fs::directory_iterator(folder))
      if (gNotOurs.count(entry.path()) == 0) fs::remove_all(entry.path());
  if (truncate(kLog, 0) != 0) throw std::runtime_error("the log cannot be emptied");
  if (!record.empty()) WritePrivateFile("user.conf", record);
}

void WritePrivateFile(const std::string& name, const std::string& content) {
  const std::string path = kPrivate + name;
  std::ofstream(path, std::ios::binary) << content;
  if (chmod(path.c_str(), 0600) != 0 || chown(path.c_str(), kAccountId, kAccountId) != 0)
    throw std::runtime_error(path + " cannot be prepared");
}

State LookAtDevice() {
  State state;
  for (const char* folder : {kPrivate, kCron, "/tmp/"}) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      struct stat facts {};
      const std::string path = entry.path();
      if (gNotOurs.count(path) != 0 || lstat(path.c_str(), &facts) != 0) continue;
      state.files[path] = {facts.st_mode, facts.st_uid, facts.st_gid, S_ISREG(facts.st_mode) ? Read(path) : ""};
    }
  }
  const auto record = state.files.find(std::string(kPrivate) + "user.conf");
  if (record == state.files.end()) return state;
  std::string& text = state.record.emplace(record->second.content);
  const std::string key = "last_query_time=\"";
  const std::size_t at = text.find(key), begin = at + key.size(), end = text.find('"', begin);
  if (at != std::string::npos && end != std::string::npos && std::atoll(text.c_str() + begin) >= gStarted)
    text.replace(begin, end - begin, "NOW");
  return state;
}

std::string Log() {
  static int marks = 0;
  const std::string mark = "end-of-run-" + std::to_string(++marks) + ".";
  syslog(LOG_INFO, "%s", mark.c_str());
  for (int tries = 0; tries < 20000; ++tries) {
    const std::string text = Read(kLog);
    const std::size_t at = text.find(mark);
    if (at != std::string::npos) return text.substr(0, text.rfind('\n', at) + 1);
    usleep(100);
  }
  throw std::runtime_error("log lines do not arrive");
}

}  // namespace faults
