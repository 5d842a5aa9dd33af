// The scheduler: which schedules and jobs reach a line that root's cron reads, and how a fleet spreads itself.
#include <map>
#include <set>
#include <sstream>

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

/// The lines of the job's file that are no comments.
std::vector<std::string> JobLines() {
  std::vector<std::string> lines;
  std::istringstream in(Slurp(kFile));
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line[0] != '#') lines.push_back(line);
  }
  return lines;
}

std::set<std::string> CronFiles() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/etc/cron.d")) names.insert(entry.path().filename());
  return names;
}

class Scheduler : public testing::Test {
 protected:
  void SetUp() override {
    for (const std::string& name : CronFiles()) unlink(("/etc/cron.d/" + name).c_str());
    Spill("/usr/varn/etc/host.conf", "serial=\"2040VKN000001\"\n");
  }
};

TEST_F(Scheduler, AcceptsFiveValidFieldsAndRefusesEverythingElse) {
  for (const char* schedule : {kDefault, "* * * * *", "0 0 1 1 0", "59 23 31 12 7", "~ ~ ~ ~ ~", "*/5 */2 */10 */3 */2",
                               "1,2,3 4-6 1-31 1,12 1-5", "0-30/10,45 0 * * *", "0~59 0~23 1~31 1~12 0~7",
                               "5~5 0 * * *", "  7   8\t* * *  ", "00 09 * * *"})
    EXPECT_TRUE(CheckSchedule(schedule).valid) << schedule;
  ASSERT_TRUE(Save(Job("1 2 3 4 5")));
  const std::string before = Slurp(kFile);
  std::istringstream refused(
      "|* * * *|* * * * * *|60 * * * *|* 24 * * *|* * 0 * *|* * 32 * *|* * * 0 *|* * * 13 *|* * * * 8|5- * * * *|"
      "9-5 * * * *|9~5 * * * *|~5 * * * *|1~2~3 * * * *|1~5,7 * * * *|~/2 * * * *|1~60 * * * *|*/0 * * * *|"
      "*/60 * * * *|*/ * * * *|5/5 * * * *|** * * * *|1,,2 * * * *|1, * * * *|1-2-3 * * * *|001 * * * *|"
      "4294967296 * * * *|* * * * mon|@reboot|* * * * * root sh|* * * * *\n* * * * * root sh|*\n* * * *|"
      "* * * * *;|$(x) * * * *|* * * * *\r|* * * * %|\xd9\xa1 * * * *|0x1 * * * *|+1 * * * *");
  for (std::string schedule; std::getline(refused, schedule, '|');) {
    EXPECT_FALSE(Save(Job(schedule))) << schedule;
    EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_SCHEDULE), VLIBCErrGet());
  }
  EXPECT_FALSE(Save(Job(std::string("* * * * *\0x", 11))));
  EXPECT_EQ(before, Slurp(kFile));
  EXPECT_EQ(std::set<std::string>{"kivo"}, CronFiles()) << "no temporary file either";
}

TEST_F(Scheduler, DrawsInsideTheOpenFieldsAlwaysTheSameAndSpreadsAFleet) {
  EXPECT_NE(DrawSchedule("~ ~ * * *", "S1", "kivo"), DrawSchedule("~ ~ * * *", "S1", "backup"));
  EXPECT_EQ(DrawSchedule("~ ~ * * *", "S1", "kivo"), DrawSchedule("~ ~ * * *", "S1", "kivo"));
  std::map<std::string, int> slots;
  for (int device = 0; device < 100000; ++device)
    ++slots[DrawSchedule(kDefault, "2040VKN" + std::to_string(100000 + device), "kivo")];
  EXPECT_TRUE(slots.count("0 9 * * 1") == 1 && slots.count("59 16 * * 5") == 1);
  constexpr double kMean = 100000.0 / (60 * 8 * 5);
  EXPECT_EQ(60u * 8 * 5, slots.size());
  for (const auto& slot : slots)
    EXPECT_TRUE(slot.second < 2 * kMean && slot.second > kMean / 3) << slot.first << ": " << slot.second;
}

TEST_F(Scheduler, SavesOneLineForRootsCron) {
  umask(077);
  ASSERT_TRUE(Save(Job()));
  umask(022);
  EXPECT_EQ("0644 0:0", ModeAndOwner(kFile)) << "cron reads no other";
  const std::string command = " root /usr/varn/bin/varnkivo --report_info";
  EXPECT_EQ(std::vector<std::string>{DrawSchedule(kDefault, "2040VKN000001", "kivo") + command}, JobLines());
  Spill("/usr/varn/etc/host.conf", "");
  Spill("/etc/machine-id", "");
  EXPECT_FALSE(Save(Job())) << "an open schedule takes a serial";
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NO_SERIAL), VLIBCErrGet());
  ASSERT_TRUE(Save(Job("0 3 * * *")));
  EXPECT_EQ(std::vector<std::string>{"0 3 * * *" + command}, JobLines());
  VARN::VARNCrond::ConfigManager configuration("kivo", false);
  EXPECT_TRUE(configuration.Remove());
  EXPECT_TRUE(configuration.Remove());
  EXPECT_EQ(std::set<std::string>{}, CronFiles());
}

TEST_F(Scheduler, RefusesWordsThatCouldSayMoreThanTheyShouldAndQuotesTheRest) {
  const auto with = [](const std::string& user, const std::vector<std::string>& words) {
    Json::Value job = Job("0 3 * * *");
    job["user"] = user;
    job["cmd_list"] = Json::Value(Json::arrayValue);
    for (const std::string& word : words) job["cmd_list"].append(word);
    return job;
  };
  for (const char* user : {"", "root sh", "root\n*", "-x", "%"}) EXPECT_FALSE(Save(with(user, {"/bin/sh"}))) << user;
  for (const char* word : {"a\n* * * * * root sh", "a%b", "a\rb"}) EXPECT_FALSE(Save(with("root", {"/bin/sh", word})));
  for (const char* program : {"", "sh"}) EXPECT_FALSE(Save(with("root", {program})));
  EXPECT_FALSE(Save(with("root", {})));
  for (const char* name : {"", ".", "..", "../x", "a/b", "a.b", "a b", "a\n"}) EXPECT_FALSE(Save(Job(), name));
  EXPECT_EQ(std::set<std::string>{}, CronFiles());

  std::vector<std::string> words = {"/bin/sh", "-c", "for w; do echo \"[$w]\" >>/tmp/words; done", "sh"};
  std::string expected;
  for (const char* word : {"it's", "$HOME", "a  b", "`id`", "", ";", "*", "\\", "#x", "\xc3\xa4", "--a=b"}) {
    words.push_back(word);
    expected += std::string("[") + word + "]\n";
  }
  ASSERT_TRUE(Save(with("root", words)));
  const std::string start = "0 3 * * * root ", line = JobLines().at(0);
  ASSERT_EQ(start, line.substr(0, start.size()));
  EXPECT_EQ(0, std::system(line.c_str() + start.size()));
  EXPECT_EQ(expected, Slurp("/tmp/words"));
}

TEST_F(Scheduler, RemovesByCommandAndTouchesNoFileOfOthers) {
  const std::string foreign =
      "# Made by hand, for the time being.\n# varn-command: /usr/varn/bin/varnkivo --report_info\n"
      "0 0 * * * root /usr/varn/bin/varnkivo --report_info\n";
  Spill("/etc/cron.d/byhand", foreign);
  ASSERT_EQ(0, symlink("/etc/cron.d/byhand", "/etc/cron.d/link"));
  Json::Value other = Job("0 3 * * *");
  other["cmd_list"][1] = "--report";
  ASSERT_TRUE(Save(Job("0 3 * * *"), "kivo") && Save(Job("0 4 * * *"), "second") && Save(other, "third"));
  for (const char* name : {"byhand", "link"}) EXPECT_FALSE(Save(Job("0 3 * * *"), name)) << name;
  EXPECT_FALSE(VARN::VARNCrond::ConfigManager("byhand", false).Remove());
  EXPECT_EQ(2, VARNScheduleRemove("/usr/varn/bin/varnkivo --report_info"));
  EXPECT_EQ(0, VARNScheduleRemove("/usr/varn/bin/varnkivo --report_info"));
  EXPECT_EQ(0, VARNScheduleRemove("/usr/varn/bin/varnkivo"));
  EXPECT_EQ((std::set<std::string>{"byhand", "link", "third"}), CronFiles());
  EXPECT_EQ(foreign, Slurp("/etc/cron.d/byhand"));
}

}  // namespace
