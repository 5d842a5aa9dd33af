// The scheduler of the host platform: one named cron configuration, that is a set of jobs that the device runs at
// fixed times. The only part of the platform interface with C++ linkage; the rest is in <varn/platform.h>.
#ifndef VARN_CROND_H
#define VARN_CROND_H

#include <memory>
#include <string>

#include <json/forwards.h>

namespace VARN {
namespace VARNCrond {

/// The configuration `name` (1 to 64 of A-Z a-z 0-9 _ -). Constructing it touches nothing; the second argument is the
/// device's own and ignored by the reference platform. Neither operation throws; why one failed is in VLIBCErrGet.
class __attribute__((visibility("default"))) ConfigManager {
 public:
  ConfigManager(const std::string& name, bool);
  ~ConfigManager();
  ConfigManager(const ConfigManager&) = delete;
  ConfigManager& operator=(const ConfigManager&) = delete;

  /// Makes `job` the configuration's job, in place of an earlier one:
  /// { "name": "job", "period": "crontab", "crontab": "~ 9~16 * * 1~5", "user": "root", "cmd_list": ["/path", "arg"] }.
  /// "crontab" has five cron fields of [0-9*,/~-]; "~" (any value of the field) and "a~b" become a value that is drawn
  /// once per device, so that a fleet spreads itself. False, and nothing changed, where any of it is not allowed.
  bool Save(const Json::Value& job);

  /// Removes the configuration. True where there is none afterwards.
  bool Remove();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace VARNCrond
}  // namespace VARN

#endif  // VARN_CROND_H
