// The documented files of the device, looked at and never written: where they are, what mode and owner they have, and
// the line of the scheduled report.
#pragma once

#include <sys/types.h>

#include <string>

namespace kivotool {

constexpr char kRecordPath[] = "/usr/varn/etc/varnholt-account/private/user.conf";
constexpr char kJobPath[] = "/etc/cron.d/kivo";
constexpr uid_t kAccountId = 934;  ///< user and group of everything private

struct FileFacts {
  bool exists = false;
  std::string mode;  ///< "0600"; empty when the file does not exist or may not be seen
  uid_t uid = 0;
  gid_t gid = 0;
  bool known = true;  ///< false: this user may not even see whether it exists
};

/// Facts about the entry itself: a link is not followed.
FileFacts LookAt(const std::string& path);
/// The line of the report in the job file, without white space at its ends; empty when there is none.
std::string ReadJobLine();

}  // namespace kivotool
