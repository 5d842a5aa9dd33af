// A schedule and a command that a server or a record may name. What goes into root's cron file is five fields of
// harmless characters and one line, or nothing.
#include "crond_schedule.h"

#include <algorithm>

#include "property.h"

namespace {

void CheckSchedule(const std::string& schedule) {
  if (!varnplatform::CheckSchedule(schedule).valid) return;
  const std::string drawn = varnplatform::DrawSchedule(schedule, "2040VKN000001", "kivo");
  Require(drawn.find_first_not_of("0123456789*,/- ") == std::string::npos, "only what cron reads is written", drawn);
  Require(std::count(drawn.begin(), drawn.end(), ' ') == 4, "five fields are written", drawn);
  const varnplatform::ScheduleCheck again = varnplatform::CheckSchedule(drawn);
  Require(again.valid && !again.drawn, "what was drawn is a schedule without anything left to draw", drawn);
  Require(drawn == varnplatform::DrawSchedule(schedule, "2040VKN000001", "kivo"), "a device always draws the same",
          drawn);
}

void CheckCommand(const std::string& text) {
  std::vector<std::string> words(1);
  for (const char c : text) {
    if (c == '|')
      words.emplace_back();
    else
      words.back() += c;
  }
  const std::optional<std::string> quoted = varnplatform::QuoteCommand(words);
  if (!quoted) return;
  Require((*quoted)[0] == '/' || (*quoted)[0] == '\'', "a program is named by its path", *quoted);
  Require(quoted->find_first_of(std::string("\n\r%\0", 4)) == std::string::npos, "a command is one line for cron",
          *quoted);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckSchedule(text);
  CheckCommand(text);
  varnplatform::IsUserName(text);
  varnplatform::IsConfigurationName(text);
  return 0;
}
