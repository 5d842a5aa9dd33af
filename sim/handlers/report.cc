// "device/api/report" of the account host: a device that is signed in says that it is still there, and may be given
// another schedule for it. What is accepted is remembered with the account.
#include <ctime>

#include "sim/handlers/device_request.h"
#include "sim/json_text.h"
#include "sim/zone_name.h"

namespace kivosim {
namespace {

bool IsEmpty(const std::string& value) { return value.empty(); }

Reply Answer(const Request& request, CloudState& state) {
  const std::string refusal = CheckHolder(request, state);
  if (!refusal.empty()) return CodeAnswer(refusal);
  Json::Value answer;
  answer["code"] = "good";
  state.Change(request.Param("id"), [&](Account& account) {
    account.reports.push_back(
        {static_cast<std::uint64_t>(std::time(nullptr)), request.Param("timezone"), request.Param("serial_no")});
    if (account.reportCronTimestring) answer["report_cron_timestring"] = *account.reportCronTimestring;
  });
  return Response{200, JsonText(answer)};
}

}  // namespace

void AddReport(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/device/api/report",
                    DeviceHandler({{"id", Parameter::kMayBeEmpty},
                                   {"auth_key", Parameter::kMayBeEmpty},
                                   {"timezone", Parameter::kFilled, {}, IsZoneName},
                                   {"serial_no"},
                                   {"lu_info", Parameter::kMayBeEmpty, {}, IsEmpty}},
                                  Answer)});
}

}  // namespace kivosim
