// Removes the jobs of a command, whatever the configuration they were saved under. Looks only at files that this
// scheduler made.
#include <dirent.h>

#include <cerrno>
#include <memory>
#include <string>

#include "crond_file.h"
#include "crond_schedule.h"
#include "error.h"

using namespace varnplatform;

namespace {

int RemoveJobsOf(const std::string& command) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(kCronDirectory), closedir);
  if (!directory) return errno == ENOENT ? 0 : FailErrno(VLIB_ERR_OPEN);
  int removed = 0;
  while (const dirent* entry = readdir(directory.get())) {
    const std::string path = std::string(kCronDirectory) + entry->d_name;
    std::string found;
    if (!IsConfigurationName(entry->d_name) || ReadCronFile(path, &found) != CronFile::kOurs) continue;
    if (found != command) continue;
    if (!RemoveCronFile(path)) return -1;
    ++removed;
  }
  return removed;
}

}  // namespace

int VARNScheduleRemove(const char* command) {
  if (!command) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] { return RemoveJobsOf(command); });
}
