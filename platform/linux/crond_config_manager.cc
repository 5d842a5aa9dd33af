// One cron configuration as a file of its name in "/etc/cron.d". The job's texts come from a server in part: what is
// not known to be harmless is refused before anything is written, and then the earlier job stays.
#include <varn/crond.h>

#include <optional>
#include <vector>

#include <json/value.h>

#include "crond_file.h"
#include "crond_schedule.h"
#include "device_facts.h"
#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

constexpr std::size_t kLongestLine = 900;  // cron cuts or refuses somewhat longer ones

struct Job {
  std::string schedule, user;
  std::vector<std::string> words;
};

std::optional<std::string> Text(const Json::Value& job, const char* key) {
  const Json::Value& value = job[key];
  return value.isString() ? std::optional<std::string>(value.asString()) : std::nullopt;
}

std::optional<Job> ParseJob(const Json::Value& json) {
  if (!json.isObject() || Text(json, "period") != "crontab" || !json["cmd_list"].isArray()) return std::nullopt;
  const auto schedule = Text(json, "crontab"), user = Text(json, "user");
  if (!schedule || !CheckSchedule(*schedule).valid || !user || !IsUserName(*user)) return std::nullopt;
  Job job{*schedule, *user, {}};
  for (const Json::Value& word : json["cmd_list"]) {
    if (!word.isString()) return std::nullopt;
    job.words.push_back(word.asString());
  }
  return job;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

int SaveJob(const std::string& name, const Json::Value& json) {
  const auto job = ParseJob(json);
  const auto command = job ? QuoteCommand(job->words) : std::nullopt;
  if (!IsConfigurationName(name) || !command) return Fail(VLIB_ERR_SCHEDULE);
  const std::string serial = CheckSchedule(job->schedule).drawn ? SerialNumber() : "-";
  if (serial.empty()) return -1;
  const std::string line = DrawSchedule(job->schedule, serial, name) + " " + job->user + " " + *command;
  if (line.size() > kLongestLine) return Fail(VLIB_ERR_SCHEDULE);
  const std::string path = kCronDirectory + name;
  std::string earlier;
  if (ReadCronFile(path, &earlier) == CronFile::kForeign) return -1;
  // A name with dots for the temporary file: cron skips those. Two savers never share one.
  const std::string hidden = HiddenSibling(path, ".");
  RemoveLeftovers(hidden);
  return ReplaceFile(path, hidden + RandomSuffix(), CronFileText(Joined(job->words), line), {0644, 0, 0}) ? 0 : -1;
}

int RemoveJob(const std::string& name) {
  if (!IsConfigurationName(name)) return Fail(VLIB_ERR_SCHEDULE);
  const std::string path = kCronDirectory + name;
  std::string command;
  const CronFile found = ReadCronFile(path, &command);
  if (found == CronFile::kAbsent) return 0;
  return found == CronFile::kOurs && RemoveCronFile(path) ? 0 : -1;
}

}  // namespace
}  // namespace varnplatform

namespace VARN {
namespace VARNCrond {

struct ConfigManager::Impl {
  std::string name;
};

ConfigManager::ConfigManager(const std::string& name, bool) : impl_(new Impl{name}) {}
ConfigManager::~ConfigManager() = default;

bool ConfigManager::Save(const Json::Value& job) {
  return varnplatform::Guarded([&] { return varnplatform::SaveJob(impl_->name, job); }) == 0;
}

bool ConfigManager::Remove() {
  return varnplatform::Guarded([&] { return varnplatform::RemoveJob(impl_->name); }) == 0;
}

}  // namespace VARNCrond
}  // namespace VARN
