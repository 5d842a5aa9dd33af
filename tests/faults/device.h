// The device's files: put into a first state before a run, looked at afterwards. Only what the library's operations
// write is touched; log lines are read from where the sandbox collects them.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>

namespace faults {

constexpr char kPrivate[] = "/usr/varn/etc/varnholt-account/private/", kCron[] = "/etc/cron.d/";

struct File {
  mode_t mode = 0;  // with the type
  uid_t uid = 0;
  gid_t gid = 0;
  std::string content;
};

struct State {
  std::map<std::string, File> files;  // of the private folder, of /tmp and of /etc/cron.d by their paths
  std::optional<std::string> record;  // the account record with the time of a query of today replaced by "NOW"
};

/// What lies in /tmp now is none of the operations'. Installs a plug-in for signing in and one for signing out.
void PrepareDevice();
/// `record` is the account record; empty: none. There is no API key, no lock, no job and no log line.
void ResetDevice(const std::string& record);
void WritePrivateFile(const std::string& name, const std::string& content);
State LookAtDevice();
/// Every line logged since ResetDevice().
std::string Log();

}  // namespace faults
