// Reads the five fields of a cron line and walks the days ahead. No state. Cron's odd rule stays: when both day fields
// are restricted, a day that matches either of them counts.
#include "cron_schedule.h"

#include <bitset>
#include <ctime>
#include <optional>
#include <sstream>

namespace kivotool {
namespace {

using Field = std::bitset<64>;

std::optional<int> Number(const std::string& text) {
  if (text.empty() || text.size() > 2 || text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return std::stoi(text);
}

/// "*", "5", "1-5", each with an optional "/step": sets the bits. False when it is none of them.
bool AddPart(std::string part, int low, int high, Field& field) {
  int step = 1;
  if (const std::size_t slash = part.find('/'); slash != std::string::npos) {
    const auto given = Number(part.substr(slash + 1));
    if (!given || *given == 0) return false;
    step = *given;
    part.resize(slash);
  }
  const std::size_t dash = part.find('-');
  const auto first = part == "*" ? low : Number(part.substr(0, dash));
  const auto last = part == "*" ? high : dash == std::string::npos ? first : Number(part.substr(dash + 1));
  if (!first || !last || *first < low || *last > high || *first > *last) return false;
  for (int value = *first; value <= *last; value += step) field.set(static_cast<std::size_t>(value));
  return true;
}

std::optional<Field> ReadField(std::istream& line, int low, int high, bool* restricted = nullptr) {
  std::string text, part;
  if (!(line >> text)) return std::nullopt;
  if (restricted) *restricted = text[0] != '*';
  Field field;
  for (std::istringstream parts(text); std::getline(parts, part, ',');) {
    if (!AddPart(part, low, high, field)) return std::nullopt;
  }
  return field;
}

struct Schedule {
  Field minutes, hours, days, months, weekdays;
  bool daysRestricted = false, weekdaysRestricted = false;

  bool RunsOn(const std::tm& day) const {
    const bool onDay = days[static_cast<std::size_t>(day.tm_mday)];
    const bool onWeekday = weekdays[static_cast<std::size_t>(day.tm_wday)];
    const bool either = daysRestricted && weekdaysRestricted;
    return months[static_cast<std::size_t>(day.tm_mon + 1)] && (either ? onDay || onWeekday : onDay && onWeekday);
  }
};

std::optional<Schedule> Parse(const std::string& text) {
  std::istringstream line(text);
  Schedule schedule;
  const auto minutes = ReadField(line, 0, 59), hours = ReadField(line, 0, 23);
  const auto days = ReadField(line, 1, 31, &schedule.daysRestricted), months = ReadField(line, 1, 12);
  auto weekdays = ReadField(line, 0, 7, &schedule.weekdaysRestricted);
  if (!minutes || !hours || !days || !months || !weekdays) return std::nullopt;
  if ((*weekdays)[7]) weekdays->set(0);  // 7 is Sunday too
  schedule.minutes = *minutes, schedule.hours = *hours, schedule.days = *days;
  schedule.months = *months, schedule.weekdays = *weekdays;
  return schedule;
}

/// The first run on the day that begins at `midnight` and after `now`; 0: none.
std::int64_t RunWithin(const Schedule& schedule, const std::tm& midnight, std::int64_t now) {
  for (int minute = 0; minute < 24 * 60; ++minute) {
    if (!schedule.hours[static_cast<std::size_t>(minute / 60)]) continue;
    if (!schedule.minutes[static_cast<std::size_t>(minute % 60)]) continue;
    std::tm at = midnight;
    at.tm_hour = minute / 60;
    at.tm_min = minute % 60;
    at.tm_isdst = -1;
    if (const std::time_t when = std::mktime(&at); when > now) return when;
  }
  return 0;
}

}  // namespace

bool HasFiveFields(const std::string& schedule) {
  if (schedule.find_first_not_of("0123456789*,/~- \t") != std::string::npos) return false;
  std::istringstream fields(schedule);
  std::string field;
  int count = 0;
  while (fields >> field) ++count;
  return count == 5;
}

std::int64_t NextRun(const std::string& line, std::int64_t now) {
  const auto schedule = Parse(line);
  const std::time_t start = now;
  std::tm today{};
  if (!schedule || !localtime_r(&start, &today)) return 0;
  for (int ahead = 0; ahead <= 366; ++ahead) {
    std::tm day = today;
    day.tm_mday += ahead;
    day.tm_hour = 12;  // noon exists on every day, also where clocks change at midnight
    day.tm_min = day.tm_sec = 0;
    day.tm_isdst = -1;
    if (std::mktime(&day) == -1 || !schedule->RunsOn(day)) continue;
    if (const std::int64_t when = RunWithin(*schedule, day, now)) return when;
  }
  return 0;
}

}  // namespace kivotool
