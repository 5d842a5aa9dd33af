// The scheduler: which schedules and jobs reach a line that root's cron reads, and how a fleet spreads itself.
#include <dirent.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include <varn/crond.h>

#include "crond_schedule.h"
#include "test_files.h"

using varnplatform::CheckSchedule;
using varnplatform::DrawSchedule;

namespace {

const char* const kDefault = "~ 9~16 * * 1~5";
const char* const kFile = "/etc/cron.d/kivo";

Json::Value Job(const std::string& schedule = kDefault) {
  Json::Value job;
  job["name"] = "job";
  job["period"] = "crontab";
  job["crontab"] = schedule;
  job["user"] = "root";
  job["cmd_list"].append("/usr/varn/bin/varnkivo");
  job["cmd_list"].append("--report_info");
  return job;
}

bool Save(const Json::Value& job, const char* name = "kivo") {
  return VARN::VARNCrond::ConfigManager(name, false).Save(job);
}

std::vector<std::string> Parts(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

std::vector<std::string> JobLines() {
  auto lines = Parts(Slurp(kFile), '\n');
  const auto comment = [](const std::string& line) { return line.empty() || line[0] == '#'; };
  lines.erase(std::remove_if(lines.begin(), lines.end(), comment), lines.end());
  return lines;
}

std::vector<std::string> CronFiles() {
  std::vector<std::string> names;
  DIR* open = opendir("/etc/cron.d");
  while (const dirent* entry = readdir(open)) {
    if (entry->d_name != std::string(".") && entry->d_name != std::string("..")) names.emplace_back(entry->d_name);
  }
  closedir(open);
  std::sort(names.begin(), names.end());
  return names;
}

class Scheduler : public testing::Test {
 protected:
  void SetUp() override {
    for (const std::string& name : CronFiles()) unlink(("/etc/cron.d/" + name).c_str());
  }
};

TEST(Schedule, AcceptsFiveValidFields) {
  for (const char* schedule : {kDefault, "* * * * *", "0 0 1 1 0", "59 23 31 12 7", "~ ~ ~ ~ ~", "*/5 */2 */10 */3 */2",
                               "1,2,3 4-6 1-31 1,12 1-5", "0-30/10,45 0 * * *", "0~59 0~23 1~31 1~12 0~7",
                               "5~5 0 * * *", "  7   8\t* * *  ", "00 09 * * *"}) {
    EXPECT_TRUE(CheckSchedule(schedule).valid) << schedule;
  }
}

TEST_F(Scheduler, RefusesEverythingElseAndKeepsTheEarlierJob) {
  ASSERT_TRUE(Save(Job("1 2 3 4 5")));
  const std::string before = Slurp(kFile);
  const char* const refused =
      "|*|* * * *|* * * * * *|60 * * * *|* 24 * * *|* * 0 * *|* * 32 * *|* * * 0 *|* * * 13 *|* * * * 8|"
      "-1 * * * *|5- * * * *|-5 * * * *|9-5 * * * *|9~5 * * * *|~5 * * * *|5~ * * * *|1~2~3 * * * *|"
      "1~5,7 * * * *|~,5 * * * *|~/2 * * * *|1~60 * * * *|*/0 * * * *|*/60 * * * *|*/ * * * *|/5 * * * *|"
      "5/5 * * * *|** * * * *|*5 * * * *|1,,2 * * * *|,1 * * * *|1, * * * *|1-2-3 * * * *|001 * * * *|"
      "4294967296 * * * *|MON * * * *|* * * * mon|@reboot|@daily * * * *|* * * * * root sh|"
      "* * * * *\n* * * * * root sh|*\n* * * *|* * * * *;|$(x) * * * *|* * * * *\r|* * * * %|"
      "\xd9\xa1 * * * *|0x1 * * * *|1.5 * * * *|+1 * * * *";
  for (const std::string& schedule : Parts(refused, '|')) {
    EXPECT_FALSE(Save(Job(schedule))) << schedule;
    EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_SCHEDULE), VLIBCErrGet());
  }
  EXPECT_FALSE(Save(Job(std::string("* * * * *\0x", 11))));
  EXPECT_EQ(before, Slurp(kFile));
  EXPECT_EQ(std::vector<std::string>{"kivo"}, CronFiles()) << "no temporary file either";
}

TEST(Schedule, DrawsInsideTheOpenFieldsAlwaysTheSame) {
  std::set<std::string> drawn;
  for (int device = 0; device < 2000; ++device) {
    const std::string serial = "S" + std::to_string(device);
    const std::string text = DrawSchedule("~ 9~16 ~ 3~3 0~7", serial, "kivo");
    EXPECT_EQ(text, DrawSchedule("~ 9~16 ~ 3~3 0~7", serial, "kivo"));
    int minute, hour, day, month, weekday, end;
    ASSERT_EQ(5, sscanf(text.c_str(), "%d %d %d %d %d%n", &minute, &hour, &day, &month, &weekday, &end)) << text;
    EXPECT_EQ(text.size(), static_cast<std::size_t>(end));
    EXPECT_TRUE(minute >= 0 && minute < 60 && hour >= 9 && hour <= 16 && month == 3 && weekday >= 0 && weekday < 7);
    EXPECT_TRUE(day >= 1 && day <= 28) << "a day that every month has";
    drawn.insert(text);
  }
  EXPECT_LT(1950u, drawn.size());
  EXPECT_NE(DrawSchedule("~ ~ * * *", "S1", "kivo"), DrawSchedule("~ ~ * * *", "S1", "backup"));
  EXPECT_EQ("*/5 1-3 * 1,2 7", DrawSchedule(" */5  1-3 *\t1,2 7", "S1", "kivo"));
}

TEST(Schedule, AHundredThousandConsecutiveSerialsSpreadEvenly) {
  std::map<std::string, int> slots;
  for (int device = 0; device < 100000; ++device) {
    char serial[32];
    std::snprintf(serial, sizeof serial, "2040VKN%06d", device);
    ++slots[DrawSchedule(kDefault, serial, "kivo")];
  }
  constexpr double kMean = 100000.0 / (60 * 8 * 5);
  EXPECT_EQ(60u * 8 * 5, slots.size());
  for (const auto& slot : slots) {
    EXPECT_LT(slot.second, 2 * kMean) << slot.first;
    EXPECT_GT(slot.second, kMean / 3) << slot.first;
  }
}

TEST_F(Scheduler, SavesOneLineForRootsCron) {
  umask(077);
  Spill("/usr/varn/etc/host.conf", "serial=\"2040VKN000001\"\n");
  ASSERT_TRUE(Save(Job()));
  umask(022);
  EXPECT_EQ("644 0:0", ModeAndOwner(kFile)) << "cron reads no other";
  EXPECT_EQ(std::vector<std::string>{DrawSchedule(kDefault, "2040VKN000001", "kivo") +
                                     " root /usr/varn/bin/varnkivo --report_info"},
            JobLines());
  ASSERT_TRUE(Save(Job("0 3 * * *")));
  EXPECT_EQ(std::vector<std::string>{"0 3 * * * root /usr/varn/bin/varnkivo --report_info"}, JobLines());
  EXPECT_EQ(std::vector<std::string>{"kivo"}, CronFiles());
  VARN::VARNCrond::ConfigManager configuration("kivo", false);
  EXPECT_TRUE(configuration.Remove());
  EXPECT_TRUE(configuration.Remove());
  EXPECT_TRUE(CronFiles().empty());
}

TEST_F(Scheduler, RefusesJobsThatCouldSayMoreThanTheyShould) {
  const auto with = [](const char* key, const Json::Value& value) {
    Json::Value job = Job("0 3 * * *");
    job[key] = value;
    return job;
  };
  const auto command = [&](std::vector<const char*> words) {
    Json::Value list(Json::arrayValue);
    for (const char* word : words) list.append(word);
    return with("cmd_list", list);
  };
  const Json::Value none;
  // clang-format off
  const Json::Value jobs[] = {
      none, Json::Value("job"), with("period", "daily"), with("period", none), with("crontab", none),
      with("crontab", 5), with("user", none), with("user", ""), with("user", "root sh"), with("user", "root\n*"),
      with("user", "-x"), with("user", "%"), with("cmd_list", none), with("cmd_list", "/bin/sh"), command({}),
      command({""}), command({"sh"}), command({"/bin/sh", "a\n* * * * * root sh"}), command({"/bin/sh", "a%b"}),
      command({"/bin/sh", "a\rb"}), command({"/bin/sh", std::string(1000, 'x').c_str()})};
  // clang-format on
  for (const Json::Value& job : jobs) EXPECT_FALSE(Save(job)) << job;
  for (const char* name : {"", ".", "..", "../x", "a/b", "a.b", "a b", "a\n"})
    EXPECT_FALSE(Save(Job("0 3 * * *"), name));
  EXPECT_TRUE(CronFiles().empty());
}

TEST_F(Scheduler, TheShellSeesTheWordsOfTheCommand) {
  Json::Value job = Job("0 3 * * *");
  job["cmd_list"] = Json::Value(Json::arrayValue);
  std::string expected;
  for (const char* word : {"/bin/sh", "-c", "for w; do echo \"[$w]\"; done", "sh"}) job["cmd_list"].append(word);
  for (const char* word : {"it's", "$HOME", "a  b", "`id`", "", ";", "*", "\\", "#x", "\xc3\xa4", "--a=b"}) {
    job["cmd_list"].append(word);
    expected += std::string("[") + word + "]\n";
  }
  ASSERT_TRUE(Save(job));
  ASSERT_EQ(1u, JobLines().size());
  const std::string start = "0 3 * * * root ", line = JobLines()[0];
  ASSERT_EQ(start, line.substr(0, start.size()));
  FILE* pipe = VLIBCPopen("/bin/sh", "r", "-c", line.c_str() + start.size(), static_cast<char*>(nullptr));
  std::string seen;
  for (int c; (c = fgetc(pipe)) != EOF;) seen += static_cast<char>(c);
  VLIBCPclose(pipe);
  EXPECT_EQ(expected, seen);
}

TEST_F(Scheduler, RemovesByCommandAndTouchesNoFileOfOthers) {
  const std::string foreign =
      "# Made by hand, for the time being.\n# varn-command: /usr/varn/bin/varnkivo --report_info\n"
      "0 0 * * * root /usr/varn/bin/varnkivo --report_info\n";
  Spill("/etc/cron.d/byhand", foreign);
  Json::Value other = Job("0 3 * * *");
  other["cmd_list"][1] = "--report";
  ASSERT_TRUE(Save(Job("0 3 * * *"), "kivo") && Save(Job("0 4 * * *"), "second") && Save(other, "third"));
  EXPECT_FALSE(Save(Job("0 3 * * *"), "byhand"));
  EXPECT_FALSE(VARN::VARNCrond::ConfigManager("byhand", false).Remove());
  EXPECT_EQ(2, VARNScheduleRemove("/usr/varn/bin/varnkivo --report_info"));
  EXPECT_EQ(0, VARNScheduleRemove("/usr/varn/bin/varnkivo --report_info"));
  EXPECT_EQ(0, VARNScheduleRemove("/usr/varn/bin/varnkivo"));
  EXPECT_EQ((std::vector<std::string>{"byhand", "third"}), CronFiles());
  EXPECT_EQ(foreign, Slurp("/etc/cron.d/byhand"));
  EXPECT_GT(0, VARNScheduleRemove(nullptr));
}

TEST_F(Scheduler, ALinkInItsPlaceIsLeftAlone) {
  Spill("/tmp/target", "precious");
  ASSERT_EQ(0, symlink("/tmp/target", kFile));
  EXPECT_FALSE(Save(Job("0 3 * * *")));
  EXPECT_EQ("precious", Slurp("/tmp/target"));
}

TEST_F(Scheduler, WithoutASerialOnlyOpenSchedulesFail) {
  Spill("/usr/varn/etc/host.conf", "");
  Spill("/etc/machine-id", "");
  EXPECT_FALSE(Save(Job()));
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NO_SERIAL), VLIBCErrGet());
  EXPECT_TRUE(Save(Job("0 3 * * *")));
}

}  // namespace
