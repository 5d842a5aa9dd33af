// The cron files that this scheduler made, as told from those of the administrator by their first line.
#ifndef VARNPLATFORM_CROND_FILE_H
#define VARNPLATFORM_CROND_FILE_H

#include <string>

namespace varnplatform {

extern const char* const kCronDirectory;  // ends with a slash

/// The whole file for one job; `command` is its words joined by single blanks, `line` what cron is to read.
std::string CronFileText(const std::string& command, const std::string& line);

enum class CronFile { kAbsent, kOurs, kForeign };  // kForeign has its error recorded
/// Whose file this is; for ours also the command it was made for.
CronFile ReadCronFile(const std::string& path, std::string* command);

/// Removes what savers that were ended have left behind: files whose path begins with `start`, a minute old and more.
void RemoveLeftovers(const std::string& start);

/// Removes the file. True where there is none afterwards.
bool RemoveCronFile(const std::string& path);

}  // namespace varnplatform

#endif  // VARNPLATFORM_CROND_FILE_H
