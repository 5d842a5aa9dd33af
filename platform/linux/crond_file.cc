// Text of a cron file: two comment lines and one job line. A file without our first line is never changed or removed:
// configuration names and the names that packages give to their cron files share one directory.
#include "crond_file.h"

#include <unistd.h>

#include <cerrno>

#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

constexpr std::string_view kHeader = "# Made by the varn scheduler. Changes to this file are lost.\n# varn-command: ";

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

bool RemoveCronFile(const std::string& path) {
  return unlink(path.c_str()) == 0 || errno == ENOENT || FailErrno(VLIB_ERR_WRITE) == 0;
}

}  // namespace varnplatform
