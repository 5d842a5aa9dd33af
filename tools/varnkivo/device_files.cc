// Looks at the documented files. Touches nothing. The job file belongs to root and is read by the cron service; only
// the line that runs the report is of interest, whatever else stands beside it.
#include "device_files.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

namespace kivotool {

FileFacts LookAt(const std::string& path) {
  FileFacts facts;
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    facts.known = errno == ENOENT || errno == ENOTDIR;
    return facts;
  }
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode & 07777));
  facts.exists = true;
  facts.mode = mode;
  facts.uid = status.st_uid;
  facts.gid = status.st_gid;
  return facts;
}

std::string ReadJobLine() {
  std::ifstream file(kJobPath);
  for (std::string line; std::getline(file, line);) {
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string::npos || line[begin] == '#' || line.find("--report_info") == std::string::npos) continue;
    return line.substr(begin, line.find_last_not_of(" \t\r") + 1 - begin);
  }
  return "";
}

}  // namespace kivotool
