// What may stand in a line of a cron file that root's cron reads, and how a fleet spreads itself over the time that a
// schedule leaves open. Pure functions: the schedule comes from a server, so everything not known to be right is no.
#ifndef VARNPLATFORM_CROND_SCHEDULE_H
#define VARNPLATFORM_CROND_SCHEDULE_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varnplatform {

/// Whether the schedule is valid, and whether it has a "~" that wants a serial number.
struct ScheduleCheck {
  bool valid, drawn;
};
ScheduleCheck CheckSchedule(std::string_view schedule);

/// The five fields of a valid schedule for the device `serial`, single blanks between, "~" and "a~b" replaced by one
/// value of the field or of a..b: always the same one for the same serial, configuration and field.
std::string DrawSchedule(std::string_view schedule, const std::string& serial, const std::string& configuration);

/// The command with each word quoted for the shell where it needs it; nothing where a word could end the cron line or
/// be changed by cron, or where the first is not an absolute path.
std::optional<std::string> QuoteCommand(const std::vector<std::string>& words);

bool IsUserName(std::string_view user);
bool IsConfigurationName(std::string_view name);

}  // namespace varnplatform

#endif  // VARNPLATFORM_CROND_SCHEDULE_H
