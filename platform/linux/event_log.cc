// The device's event log: who signed in, who signed out. An entry is an event number of the device's catalogue with up
// to four texts; the catalogue gives the sentence.
#include <syslog.h>

#include <cstdio>

#include <json/value.h>

#include "error.h"
#include "report_log.h"

using namespace varnplatform;

namespace {

const char* const kFile = "/usr/varn/var/log/events.jsonl";

int PriorityOf(int level) { return level == 3 ? LOG_ERR : level == 2 ? LOG_WARNING : LOG_INFO; }

}  // namespace

int VARNLogSet1(int type, int level, unsigned int event, const char* a, const char* b, const char* c, const char* d) {
  return Guarded([&] {
    char number[16];
    std::snprintf(number, sizeof number, "0x%08X", event);
    Json::Value record(Json::objectValue);
    record["type"] = type;
    record["level"] = level;
    record["event"] = number;
    for (const char* text : {a, b, c, d}) record["args"].append(text ? text : "");
    return Report(PriorityOf(level), "event", kFile, record) ? 0 : -1;
  });
}
