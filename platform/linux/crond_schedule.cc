// Five cron fields, checked and drawn. A value is drawn from a SHA-256 of serial, configuration name and field number:
// it must not change when the job is registered again, and must not depend on how the maker numbers its devices.
#include "crond_schedule.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace varnplatform {
namespace {

struct Field {
  int low, high;          // what cron takes
  int drawLow, drawHigh;  // what a lone "~" stands for
};
// Days: 29 to 31 would leave months out, so no device draws them unasked. Weekdays: 7 is Sunday again.
constexpr Field kFields[] = {{0, 59, 0, 59}, {0, 23, 0, 23}, {1, 31, 1, 28}, {1, 12, 1, 12}, {0, 7, 0, 6}};
constexpr std::size_t kFieldCount = std::size(kFields);

std::vector<std::string_view> Split(std::string_view text, std::string_view separators) {
  std::vector<std::string_view> parts;
  for (std::size_t at = 0;;) {
    const std::size_t end = text.find_first_of(separators, at);
    parts.push_back(text.substr(at, end - at));
    if (end == std::string_view::npos) return parts;
    at = end + 1;
  }
}

std::vector<std::string_view> Fields(std::string_view schedule) {
  auto fields = Split(schedule, " \t");
  fields.erase(std::remove(fields.begin(), fields.end(), std::string_view()), fields.end());
  return fields;
}

/// A decimal number of one or two digits, -1 for anything else.
int Number(std::string_view text) {
  if (text.empty() || text.size() > 2) return -1;
  int value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value;
}

bool Inside(const Field& field, int value) { return value >= field.low && value <= field.high; }

struct Range {
  int low, high;
};

/// "a<mark>b" with both ends in the field and in order.
std::optional<Range> ParseRange(const Field& field, std::string_view text, char mark) {
  const std::size_t at = text.find(mark);
  if (at == std::string_view::npos) return std::nullopt;
  const Range range{Number(text.substr(0, at)), Number(text.substr(at + 1))};
  if (!Inside(field, range.low) || !Inside(field, range.high) || range.low > range.high) return std::nullopt;
  return range;
}

/// "*", "*/n", "a", "a-b" or "a-b/n".
bool IsItem(const Field& field, std::string_view item) {
  const std::size_t slash = item.find('/');
  const std::string_view base = item.substr(0, slash);
  const bool isRange = base == "*" || ParseRange(field, base, '-');
  if (slash == std::string_view::npos) return isRange || Inside(field, Number(base));
  const int step = Number(item.substr(slash + 1));
  return isRange && step >= 1 && step <= field.high - field.low;
}

/// The values a field leaves to the device; nothing where it has no "~" of the two allowed forms.
std::optional<Range> OpenRange(const Field& field, std::string_view text) {
  if (text == "~") return Range{field.drawLow, field.drawHigh};
  auto range = ParseRange(field, text, '~');
  if (range && field.high == 7 && range->low == 0 && range->high == 7) range->high = 6;  // Sunday once
  return range;
}

bool IsField(const Field& field, std::string_view text) {
  if (OpenRange(field, text)) return true;
  const auto items = Split(text, ",");
  return std::all_of(items.begin(), items.end(), [&](std::string_view item) { return IsItem(field, item); });
}

/// Evenly 0..count-1: values of the incomplete last round of 2^64 are drawn again.
std::uint64_t Draw(const std::string& seed, std::uint64_t count) {
  const std::uint64_t excess = (UINT64_MAX % count + 1) % count;
  for (unsigned attempt = 0;; ++attempt) {
    const std::string text = seed + std::to_string(attempt);
    unsigned char digest[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest);
    std::uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | digest[i];
    if (value <= UINT64_MAX - excess) return value % count;
  }
}

bool IsControl(char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }

bool IsPlainWord(const std::string& word) {
  const auto plain = [](char c) {
    return (c > 0 && std::isalnum(static_cast<unsigned char>(c))) || (c != '\0' && std::strchr("_./:=,@+-", c));
  };
  return !word.empty() && std::all_of(word.begin(), word.end(), plain);
}

std::string QuoteWord(const std::string& word) {
  if (IsPlainWord(word)) return word;
  std::string quoted = "'";
  for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

}  // namespace

ScheduleCheck CheckSchedule(std::string_view schedule) {
  const auto fields = Fields(schedule);
  ScheduleCheck check{fields.size() == kFieldCount, false};
  for (std::size_t i = 0; check.valid && i < kFieldCount; ++i) {
    check.valid = IsField(kFields[i], fields[i]);
    check.drawn = check.drawn || OpenRange(kFields[i], fields[i]);
  }
  return check;
}

std::string DrawSchedule(std::string_view schedule, const std::string& serial, const std::string& configuration) {
  const auto fields = Fields(schedule);
  std::string out;
  for (std::size_t i = 0; i < kFieldCount; ++i) {
    if (i > 0) out += ' ';
    const auto range = OpenRange(kFields[i], fields[i]);
    if (!range) {
      out += fields[i];
      continue;
    }
    const std::string seed = serial + '\n' + configuration + '\n' + std::to_string(i) + '\n';
    const auto count = static_cast<std::uint64_t>(range->high - range->low + 1);
    out += std::to_string(range->low + static_cast<int>(Draw(seed, count)));
  }
  return out;
}

std::optional<std::string> QuoteCommand(const std::vector<std::string>& words) {
  std::string command;
  for (const std::string& word : words) {
    // cron turns a percent sign into a newline, quoted or not.
    const bool harmless = std::none_of(word.begin(), word.end(), [](char c) { return IsControl(c) || c == '%'; });
    if (!harmless) return std::nullopt;
    if (!command.empty()) command += ' ';
    command += QuoteWord(word);
  }
  if (words.empty() || words[0].empty() || words[0][0] != '/') return std::nullopt;
  return command;
}

bool IsUserName(std::string_view user) {
  const auto allowed = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_' || c == '-'; };
  return !user.empty() && user.size() <= 32 && std::all_of(user.begin(), user.end(), allowed) &&
         ((user[0] >= 'a' && user[0] <= 'z') || user[0] == '_');
}

bool IsConfigurationName(std::string_view name) {
  // No dot: cron ignores such files, and the temporary ones are named so.
  const auto allowed = [](char c) {
    return (c > 0 && std::isalnum(static_cast<unsigned char>(c))) || c == '_' || c == '-';
  };
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), allowed);
}

}  // namespace varnplatform
