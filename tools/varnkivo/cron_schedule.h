// When a line of a cron file runs next.
#pragma once

#include <cstdint>
#include <string>

namespace kivotool {

/// The first minute after `now` (seconds since the epoch, local time of the machine) at which `line` runs; 0 when its
/// five fields are not numbers, "*", lists, ranges and steps, or it does not run within a year.
std::int64_t NextRun(const std::string& line, std::int64_t now);

/// Whether `schedule` looks like one: five fields of digits and "*,/~-".
bool HasFiveFields(const std::string& schedule);

}  // namespace kivotool
