// The functions over the record for other programs: the fixed-size structure, the removal in a process of its own, and
// the scheduled report.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>

#include "account_bench.h"

using namespace accounttest;
using namespace testsupport;
using Info = _tag_kivo_INFO_;
using testing::HasSubstr;

namespace {

// What VARNKIVOAccountSet writes of FullInfo(), in this order.
const kivosim::Pairs kPairs = {{"kivoID", "ann@example.com"},
                               {"lu_auth_key", "auth key"},
                               {"kivoIDSerial", "1001"},
                               {"full_name", "Ann"},
                               {"country", "DEU"},
                               {"timezone", "Europe/Berlin"},
                               {"notify_language", "ger"},
                               {"activated", "yes"},
                               {"disabled", "no"},
                               {"enews", "yes"},
                               {"enews_local_promotion", "no"},
                               {"critical_release", "yes"},
                               {"critical_version_list", "a,c"},
                               {"critical_version_domain", "a,b,c"},
                               {"last_query_time", "1800000000"}};

std::unique_ptr<Info> FullInfo(int lastQueryTime) {
  return std::unique_ptr<Info>(new Info{"ann@example.com", "password", "1001", "auth key", "Ann", "DEU",
                                        "Europe/Berlin", "ger", "a,c", "a,b,c", 1, 0, 1, 1, 0, lastQueryTime});
}

TEST(AccountInfo, GetAndSetRefuseNullAndGetNeedsAuthKeyAndUserId) {
  FakePlatform device;
  EXPECT_EQ(-1, VARNKIVOAccountGet(nullptr));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  VARNKIVOErrSet(0);
  EXPECT_EQ(-1, VARNKIVOAccountSet(nullptr));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  auto info = std::make_unique<Info>(), before = std::make_unique<Info>();
  std::memset(info.get(), 'x', sizeof(Info));
  std::memset(before.get(), 'x', sizeof(Info));
  for (const char* record : {"", "kivoID=\"a@b\"\nlu_auth_key=\"k\"\n", "kivoIDSerial=\"1\"\n"}) {
    if (*record) WriteRecord(record);
    VARNKIVOErrSet(0);
    EXPECT_EQ(-1, VARNKIVOAccountGet(info.get())) << record;
    EXPECT_EQ(KIVO_ERR_NO_ACCOUNT, VARNKIVOErrGet()) << record;
    EXPECT_EQ(0, std::memcmp(info.get(), before.get(), sizeof(Info))) << record;
  }
}

TEST(AccountInfo, GetFillsEveryFieldButThePasswordAndCutsWhatDoesNotFit) {
  FakePlatform device;
  WriteRecord(Lines(kPairs, kAllLines));
  VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
  auto info = std::make_unique<Info>();
  std::strcpy(info->password, "password");
  EXPECT_EQ(0, VARNKIVOAccountGet(info.get()));
  EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
  EXPECT_EQ(0, std::memcmp(info.get(), FullInfo(1800000000).get(), sizeof(Info)));
  const std::string text(5000, 't');
  kivosim::Pairs longer = kPairs;
  for (auto& pair : longer) pair.second = text;
  WriteRecord(Lines(longer, kAllLines));
  EXPECT_EQ(0, VARNKIVOAccountGet(info.get()));
  for (const char* field : {info->email, info->userId, info->authKey}) EXPECT_EQ(text.substr(0, 2047), field);
  for (const char* field : {info->name, info->criticalVersionList, info->criticalVersionDomain})
    EXPECT_EQ(text.substr(0, 1023), field);
  for (const char* field : {info->country, info->timezone, info->notifyLanguage}) EXPECT_EQ(text.substr(0, 255), field);
  EXPECT_STREQ("password", info->password);
}

TEST(AccountInfo, SetWritesTheIdentityAndTheProfileOnlyWithAQueryTime) {
  for (const int time : {0, -1, 1800000000}) {
    FakePlatform device;
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    EXPECT_EQ(0, VARNKIVOAccountSet(FullInfo(time).get()));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_EQ(Lines(kPairs, time > 0 ? kAllLines : 3), ReadFile(kRecord)) << time;
  }
  FakePlatform device;
  auto info = FullInfo(0);
  std::memset(info->email, 'e', sizeof info->email);  // no terminator: it ends at its size
  EXPECT_EQ(0, VARNKIVOAccountSet(info.get()));
  EXPECT_THAT(ReadFile(kRecord), HasSubstr("kivoID=\"" + std::string(4096, 'e') + "\"\n"));
}

TEST(AccountInfo, FailingWriteKeepsWhatWasWrittenBeforeAndWritesNoMore) {
  for (std::size_t before = 0; before < kPairs.size(); ++before) {
    SCOPED_TRACE(kPairs[before].first);
    FakePlatform device;
    device.FailAfter("VLIBCFileSetKeyValue", static_cast<int>(before));
    EXPECT_EQ(-1, VARNKIVOAccountSet(FullInfo(1800000000).get()));
    EXPECT_EQ(KIVO_ERR_CONFIG_WRITE, VARNKIVOErrGet());
    EXPECT_EQ(Lines(kPairs, before), ReadFile(kRecord));
    EXPECT_TRUE(device.HasLog("Failed on VARNKIVOAccountSet: "));
  }
}

constexpr int kStatus = 0xff00;  // of _exit(-1), whatever happened
constexpr char kSeen[] = "/tmp/plug-in.seen", kGroup[] = "/sys/fs/cgroup/systemd/cgroup.procs";

/// A signed-in device with a plug-in that writes down the event, the action and whether the record is there, takes its
/// time, and fails at `failingAction`.
struct SignedIn {
  explicit SignedIn(int failingAction = 0) {
    WriteRecord("kivoID=\"a@b\"\n");
    const std::string folder = "/usr/varn/lib/plugins/kivo/kivo/logout", script = folder + "/10-witness";
    std::filesystem::create_directories(folder);
    std::filesystem::remove(kSeen);
    WriteFile(script, std::string("#!/bin/sh\ntest -e ") + kRecord + " && record=there || record=gone\n" +
                          "echo $VARN_PLUGIN_EVENT $VARN_PLUGIN_ACTION $record >>" + kSeen +
                          "\nsleep 0.05\ntest $VARN_PLUGIN_ACTION != " + std::to_string(failingAction) + "\n");
    EXPECT_EQ(0, chmod(script.c_str(), 0755));
  }
  ~SignedIn() { device.StopFailing(); }  // what was to fail did so in the child
  FakePlatform device;
};

TEST(Removal, StepsAreDoneInOrderAndTheCallerLogsWhatFailed) {
  const std::string pre = "kivo/logout 4 there\n", both = pre + "kivo/logout 5 gone\n", at = "3 kivo_config_remove:";
  struct Row {
    std::string call;  // that fails; or the plug-in itself, at `action`
    int action;
    std::string lines, seen;
    bool isThere;
  };
  for (const Row& row :
       {Row{"", 0, "", both, false}, Row{"VLIBPluginSDKInit", 0, at + "53 VLIBPluginSDKInit failed\n", "", true},
        Row{"", 4, at + "59 VLIBPluginAction failed, action=4\n", pre, true},
        Row{"", 5, at + "75 VLIBPluginAction failed, action=5\n", both, false}}) {
    SCOPED_TRACE(row.lines);
    SignedIn bench(row.action);
    WriteFile(kGroup, "");
    if (!row.call.empty()) bench.device.FailNext(row.call);
    EXPECT_EQ(kStatus, VARNKIVOAccountRemove());
    EXPECT_EQ(row.lines, Transcript(bench.device));
    EXPECT_EQ(row.seen, ReadFile(kSeen));
    EXPECT_EQ(row.isThere, IsThere(kRecord));
    EXPECT_EQ("0", ReadFile(kGroup));  // the child has left the caller's control group
  }
  std::filesystem::remove(kGroup);  // where there is no such group the rest is done all the same
  const SignedIn bench;
  EXPECT_EQ(kStatus, VARNKIVOAccountRemove());
  EXPECT_FALSE(IsThere(kRecord));
}

TEST(Removal, RaisesItsIdsOrKeepsTheRecord) {
  for (const id_t saved : {1000u, 0u}) {
    SignedIn bench;
    const std::string seen = AsUser(1000, 1000, saved, [&] {
      const int status = VARNKIVOAccountRemove();
      return std::to_string(status) + "\n" + Ids() + "\n" + Transcript(bench.device);
    });
    const std::string ids = "1000,1000," + std::to_string(saved),
                      denied = "3 kivo_config_remove:69 Change permission failed";
    EXPECT_THAT(seen, testing::StartsWith("65280\n" + ids + " " + ids + "\n"));
    EXPECT_EQ(saved != 0, seen.find("\n" + denied + "\n") != std::string::npos) << seen;
    EXPECT_EQ(saved != 0, IsThere(kRecord));
  }
}

TEST(Removal, StatusIsMinusOneWithoutAChildToWaitFor) {
  SignedIn bench;
  bench.device.FailNext("VLIBCProcFork");
  EXPECT_EQ(-1, VARNKIVOAccountRemove());
  EXPECT_TRUE(IsThere(kRecord));
  std::signal(SIGCHLD, SIG_IGN);  // the kernel reaps the children of such a caller
  EXPECT_EQ(-1, VARNKIVOAccountRemove());
  std::signal(SIGCHLD, SIG_DFL);
  struct sigaction action {};
  action.sa_handler = [](int) {};  // and no SA_RESTART: signals during the wait are no reason to end it
  sigaction(SIGALRM, &action, nullptr);
  const itimerval often = {{0, 1000}, {0, 1000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(kStatus, VARNKIVOAccountRemove());
  setitimer(ITIMER_REAL, &never, nullptr);
}

std::string JobLine() {
  const std::string file = ReadFile(kCronJob);
  return file.substr(file.rfind("\n", file.size() - 2) + 1);
}

TEST(ReportJob, RunsTheToolAsRootAtTheSchedule) {
  FakePlatform device;
  ASSERT_TRUE(VARNKIVOAccountRegisterCrond());
  const std::string drawn = JobLine();
  EXPECT_THAT(
      drawn, testing::MatchesRegex("[1-5]?[0-9] (9|1[0-6]) [*] [*] [1-5] root /usr/varn/bin/varnkivo --report_info\n"));
  varnkivo::User().SetReportCronTimestring("30 4 * * 2");
  ASSERT_TRUE(VARNKIVOAccountRegisterCrond());
  EXPECT_EQ("30 4 * * 2 root /usr/varn/bin/varnkivo --report_info\n", JobLine());
  const std::string before = ReadFile(kCronJob);
  for (const char* schedule : {"0 9 * * 1\n* * * * * root id", "0 9 * * 1 root id #", "0 9 * *", "0 9 * * 1;id",
                               "@reboot", "60 9 * * 1", "0 16~9 * * 1", "$(id) 9 * * 1", "%", " "}) {
    varnkivo::User().SetReportCronTimestring(schedule);
    EXPECT_FALSE(VARNKIVOAccountRegisterCrond()) << schedule;
    EXPECT_EQ(before, ReadFile(kCronJob)) << schedule;
  }
  device.FailNext("ConfigManager::Remove", 1, 0);
  EXPECT_FALSE(VARNKIVOAccountUnregisterCrond());
  EXPECT_TRUE(IsThere(kCronJob) && VARNKIVOAccountUnregisterCrond() && !IsThere(kCronJob));
}

}  // namespace
