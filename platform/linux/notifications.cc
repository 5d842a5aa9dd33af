// Notifications for the device's users: a tag, which the pages of the device turn into a sentence, and the texts that
// take the place of its %NAME% marks.
#include <syslog.h>

#include <json/value.h>

#include "error.h"
#include "report_log.h"

using namespace varnplatform;

namespace {

const char* const kFile = "/usr/varn/var/log/notifications.jsonl";

bool AddParams(const VLIBSzHash* params, Json::Value* out) {
  VLIBSzList* keys = VLIBCSzListAlloc(0);
  const bool listed = keys && VLIBCSzHashEnumKey(params, keys) >= 0;
  for (int i = 0; listed && i < VLIBCSzListCount(keys); ++i) {
    const char* key = VLIBCSzListGet(keys, i);
    (*out)[key] = VLIBCSzHashGetValue(params, key);
  }
  VLIBCSzListFree(keys);
  return listed;
}

}  // namespace

int VARNSysNotifySendNotifiction(const char* tag, const VLIBSzHash* params) {
  if (!tag || !*tag) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    Json::Value record(Json::objectValue);
    record["tag"] = tag;
    record["params"] = Json::Value(Json::objectValue);
    if (params && !AddParams(params, &record["params"])) return -1;
    return Report(LOG_NOTICE, "notification", kFile, record) ? 0 : -1;
  });
}
