// Where this platform writes what people are to see: the system log, and JSON lines for the device's own pages.
#ifndef VARNPLATFORM_REPORT_LOG_H
#define VARNPLATFORM_REPORT_LOG_H

#include <string>

#include <json/forwards.h>

namespace varnplatform {

/// One line to the system log, `priority` as for syslog(3). Takes no lock and allocates little, so that it cannot hang
/// in a child forked from a threaded program; a log that is full or away loses the line.
void SystemLog(int priority, const std::string& text);

/// Sends `record` with its "time" to the system log as "WHAT {...}" and appends it to the JSON-lines file.
bool Report(int priority, const char* what, const char* path, Json::Value record);

}  // namespace varnplatform

#endif  // VARNPLATFORM_REPORT_LOG_H
