// Puts the periodic report into the host's cron service and takes it out. Touches the cron configuration "kivo".
// The schedule comes from the account record; what is no schedule is refused by the host.
#include "user.h"
#include "varn/crond.h"
#include "varnkivo.h"

#include <json/json.h>

namespace {

constexpr const char* kConfiguration = "kivo";

Json::Value ReportJob() {
  Json::Value job;
  job["name"] = "job";
  job["period"] = "crontab";
  job["crontab"] = varnkivo::User().GetReportCronTimestring();
  job["user"] = "root";
  job["cmd_list"].append("/usr/varn/bin/varnkivo");
  job["cmd_list"].append("--report_info");
  return job;
}

}  // namespace

bool VARNKIVOAccountRegisterCrond(void) {
  try {
    return VARN::VARNCrond::ConfigManager(kConfiguration, false).Save(ReportJob());
  } catch (...) {
    return false;
  }
}

bool VARNKIVOAccountUnregisterCrond(void) {
  try {
    return VARN::VARNCrond::ConfigManager(kConfiguration, false).Remove();
  } catch (...) {
    return false;
  }
}
