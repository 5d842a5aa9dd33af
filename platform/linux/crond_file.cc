// Text of a cron file: two comment lines and one job line. A file without our first line is never changed or removed:
// configuration names and the names that packages give to their cron files share one directory.
#include "crond_file.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>

#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

constexpr std::string_view kHeader = "# Made by the varn scheduler. Changes to this file are lost.\n# varn-command: ";

constexpr std::time_t kLeftoverAge = 60;  // seconds

}  // namespace

const char* const kCronDirectory = "/etc/cron.d/";

std::string CronFileText(const std::string& command, const std::string& line) {
  return std::string(kHeader).append(command).append("\n").append(line).append("\n");
}

CronFile ReadCronFile(const std::string& path, std::string* command) {
  std::string content;
  if (!ReadFile(path, Links::kRefuse, &content)) return errno == ENOENT ? CronFile::kAbsent : CronFile::kForeign;
  const std::size_t end = content.find('\n', kHeader.size());
  if (content.compare(0, kHeader.size(), kHeader) != 0 || end == std::string::npos) {
    Fail(VLIB_ERR_ACCESS);
    return CronFile::kForeign;
  }
  *command = content.substr(kHeader.size(), end - kHeader.size());
  return CronFile::kOurs;
}

void RemoveLeftovers(const std::string& start) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(kCronDirectory), closedir);
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    const std::string path = std::string(kCronDirectory) + entry->d_name;
    struct stat facts {};
    if (path.compare(0, start.size(), start) == 0 && lstat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) &&
        std::time(nullptr) - facts.st_mtime >= kLeftoverAge)
      unlink(path.c_str());
  }
}

bool RemoveCronFile(const std::string& path) {
  return unlink(path.c_str()) == 0 || errno == ENOENT || FailErrno(VLIB_ERR_WRITE) == 0;
}

}  // namespace varnplatform
