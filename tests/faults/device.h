// The device's files: put into a first state before a run, looked at afterwards. Only what the library's operations
// write is touched; log lines are read from where the sandbox collects them.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <set>
#include <string>

namespace faults {

struct File {
  mode_t mode = 0;  // with the type
  uid_t uid = 0;
  gid_t gid = 0;
  std::string content;
};

class Device {
 public:
  /// What lies in /tmp now is none of the operations'. Installs a plug-in for signing in and one for signing out.
  Device();
  /// `record` is the account record; empty: none. There is no API key, no lock, no job and no log line.
  void Reset(const std::string& record);

  /// The record with the time of a query of today replaced by "NOW"; nothing where there is none.
  std::optional<std::string> Record() const;
  /// The files of the private folder, of /tmp and of /etc/cron.d by their paths.
  std::map<std::string, File> Files() const;
  /// Every line logged since Reset().
  std::string Log();

 private:
  std::set<std::string> notOurs_;
  time_t started_;
  int logMarks_ = 0;
};

extern const char* const kPrivate;  // with a slash at the end, as the next
extern const char* const kCron;

}  // namespace faults
