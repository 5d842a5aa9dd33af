// The account record as other programs see it: what setters leave, getters make of any file, and which ids the process
// has meanwhile; the functions over it: the fixed-size structure, the removal in a process, the scheduled report.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <sstream>

#include "account_bench.h"

using namespace accounttest;
using varnkivo::User;
using Info = _tag_kivo_INFO_;

namespace {

int CodeOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const varnkivo::KivoException& error) {
    return error.GetCode();
  }
  return KIVO_ERR_SUCCESS;
}

TEST(Record, WhatIsMissingEmptyOrNoneOfItsWordsReadsAsTheDefault) {
  FakePlatform device;
  for (const char* pairs :
       {"", "country=", "kivoID=|report_cron_timestring=|realname_validation_pass=|last_query_time="}) {
    if (*pairs) WriteRecord(Lines(pairs));
    EXPECT_FALSE(User().Exists() || User().GetIsActivated());
    EXPECT_TRUE(User().GetIsRealnameValidationPass());
    EXPECT_EQ("~ 9~16 * * 1~5", User().GetReportCronTimestring());
    EXPECT_EQ(0, User().GetLastQueryTime());
  }
  for (const auto& [value, flag] :
       {std::pair("yes", true), {"true", true}, {"TRUE", false}, {"yes ", false}, {"1", false}}) {
    WriteRecord(Lines(std::string("activated=") + value + "|realname_validation_pass=" + value));
    EXPECT_TRUE(User().GetIsActivated() == flag && User().GetIsRealnameValidationPass() == flag) << value;
  }
  for (const char* number : {"12abc", " 12", "1e3", "0x10", "-", "9223372036854775808", "-9223372036854775809"}) {
    WriteRecord(Lines(std::string("last_query_time=") + number));
    EXPECT_EQ(0, User().GetLastQueryTime()) << number;
  }
}

TEST(Record, EverySetLeavesModeAndOwnerAlsoWhenTheWriteFails) {
  FakePlatform device;
  for (const mode_t mask : {0, 0777}) {
    const mode_t before = umask(mask);
    unlink(kRecord);
    User().SetName("Ann");
    umask(before);
    EXPECT_EQ("0600 934:934", ModeAndOwner(kRecord));
  }
  for (const bool fails : {false, true}) {
    ASSERT_TRUE(chmod(kRecord, 0644) == 0 && chown(kRecord, 1000, 1000) == 0);
    EXPECT_EQ("Ann", User().GetName());  // read whatever mode and owner are
    if (fails) device.FailNext("VLIBCFileSetKeyValue");
    device.MustNotLog("0123456789-not-in-the-log");
    EXPECT_EQ(fails ? KIVO_ERR_CONFIG_WRITE : KIVO_ERR_SUCCESS,
              CodeOf([] { User().SetAuthKey("0123456789-not-in-the-log"); }));
    EXPECT_EQ("0600 934:934", ModeAndOwner(kRecord));
  }
  EXPECT_EQ("3 user:379 Failed to set kivo config for lu_auth_key:0123456789\n", Transcript(device));
}

constexpr char kContent[] = "kivoID=\"a@b\"\nkivoIDSerial=\"1001\"\nlu_auth_key=\"key\"\n";

/// Result, ids afterwards, traced changes and then errors of one access.
std::string Try(const FakePlatform& device, bool set) {
  std::string result = "set", changes, errors;
  const int code = CodeOf([&] {
    if (set) return User().SetEmail("c@d");
    result = User().GetEmail();
  });
  if (code != 0) result = "code " + std::to_string(code);
  std::istringstream lines(Transcript(device));
  for (std::string line; std::getline(lines, line);) (line.rfind("39 ", 0) == 0 ? changes : errors) += line + "\n";
  return result + "\n" + Ids() + "\n" + changes + errors;
}

TEST(RecordIds, RaisedForOtherUsersOnlyAndPutBackWhateverFails) {
  // Effective ids, ids afterwards, changes traced, and where one fails: the call, how many before, which, what is said.
  for (const Json::Value& row : ParseJson(R"ids([
      [0, 0, "0,0,0 0,0,0", []], [934, 934, "934,934,0 934,934,0", []],
      [1000, 1000, "1000,1000,0 1000,1000,0", ["gid(-1, 0, -1)", "uid(-1, 0, -1)", "gid(-1, 1000, -1)", "uid(-1, 1000, -1)"]],
      [1000, 1000, "1000,1000,0 1000,1000,0", [], "setresgid", 0, "gid(-1, 0, -1)", "ENTERCriticalSection"],
      [1000, 1000, "1000,1000,0 1000,1000,0", ["gid(-1, 0, -1)", "gid(-1, 1000, -1)"],
       "setresuid", 0, "uid(-1, 0, -1)", "ENTERCriticalSection"],
      [1000, 1000, "1000,1000,0 1000,0,0", ["gid(-1, 0, -1)", "uid(-1, 0, -1)", "uid(-1, 1000, -1)"],
       "setresgid", 1, "gid(-1, 1000, -1)", "LEAVECriticalSection"],
      [1000, 1000, "1000,0,0 1000,1000,0", ["gid(-1, 0, -1)", "uid(-1, 0, -1)", "gid(-1, 1000, -1)"],
       "setresuid", 1, "uid(-1, 1000, -1)", "LEAVECriticalSection"]])ids")) {
    for (const bool set : {false, true}) {
      FakePlatform device;
      WriteRecord(kContent);
      const bool fails = row.size() > 4, stopped = fails && row[7] == "ENTERCriticalSection";
      const std::string at = set ? " user:379 " : " user:340 ";
      std::string expected = (stopped ? "code 6\n" : set ? "set\n" : "a@b\n") + row[2].asString() + "\n";
      for (const Json::Value& change : row[3]) expected += "39" + at + "WARNING: setres" + change.asString() + "\n";
      if (fails) {
        expected += "35" + at + "ERROR: setres" + row[6].asString() + " [Operation not permitted]\n";
        expected += "35" + at + "ERROR: " + row[7].asString() + "\n";
      }
      if (stopped) expected += "3" + at + (set ? "Failed to change permission\n" : "Change permission failed\n");
      EXPECT_EQ(expected, AsUser(row[0].asUInt(), row[1].asUInt(), 0, [&] {
                  if (fails) device.FailAfter(row[4].asString(), row[5].asInt());
                  return Try(device, set);
                }));
      EXPECT_EQ(set && !stopped, ReadFile(kRecord) != kContent);
      EXPECT_EQ("0600 934:934", ModeAndOwner(kRecord));
    }
  }
}

TEST(RecordIds, UserWithoutAWayToRootChangesNothing) {
  FakePlatform device;
  WriteRecord(kContent);
  EXPECT_EQ("code 6 code 6 -1 6 -1 6 no job", AsUser(1000, 1000, 1000, [&] {
              Info info = {};
              std::string out = Try(device, false).substr(0, 6) + " " + Try(device, true).substr(0, 6);
              for (const auto& call : {+[](Info* to) { return VARNKIVOAccountGet(to); },
                                       +[](Info* from) { return VARNKIVOAccountSet(from); }}) {
                VARNKIVOErrSet(0);
                const int result = call(&info);
                out += " " + std::to_string(result) + " " + std::to_string(VARNKIVOErrGet());
              }
              return out + (VARNKIVOAccountRegisterCrond() ? " a job" : " no job");
            }));
  EXPECT_EQ(kContent, ReadFile(kRecord));
  EXPECT_FALSE(IsThere(kCronJob));
}

// What VARNKIVOAccountSet writes of FullInfo(), in this order.
const std::string kPairs =
    "kivoID=ann@example.com|lu_auth_key=auth key|kivoIDSerial=1001|full_name=Ann|country=DEU|timezone=Europe/Berlin|"
    "notify_language=ger|activated=yes|disabled=no|enews=yes|enews_local_promotion=no|critical_release=yes|"
    "critical_version_list=a,c|critical_version_domain=a,b,c|last_query_time=1800000000";
constexpr std::size_t kCount = 15, kIdentity = 3;

std::unique_ptr<Info> FullInfo(int lastQueryTime) {
  return std::unique_ptr<Info>(new Info{"ann@example.com", "password", "1001", "auth key", "Ann", "DEU",
                                        "Europe/Berlin", "ger", "a,c", "a,b,c", 1, 0, 1, 1, 0, lastQueryTime});
}

TEST(AccountInfo, GetNeedsMemoryAuthKeyAndUserId) {
  FakePlatform device;
  const auto info = FullInfo(5), before = FullInfo(5);
  device.FailNext("VLIBCSzHashAlloc");
  EXPECT_EQ(-1, VARNKIVOAccountGet(info.get()));
  EXPECT_EQ(KIVO_ERR_SYSTEM, VARNKIVOErrGet());
  for (const char* record : {"", "kivoID=\"a@b\"\nlu_auth_key=\"k\"\n", "kivoIDSerial=\"1\"\n"}) {
    WriteRecord(record);
    EXPECT_EQ(-1, VARNKIVOAccountGet(info.get())) << record;
    EXPECT_EQ(KIVO_ERR_NO_ACCOUNT, VARNKIVOErrGet()) << record;
    EXPECT_EQ(0, std::memcmp(info.get(), before.get(), sizeof(Info))) << record;
  }
}

TEST(AccountInfo, GetFillsEveryFieldButThePasswordAndCutsWhatDoesNotFit) {
  FakePlatform device;
  WriteRecord(Lines(kPairs));
  VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
  auto info = std::make_unique<Info>();
  std::strcpy(info->password, "password");
  EXPECT_EQ(0, VARNKIVOAccountGet(info.get()));
  EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
  EXPECT_EQ(0, std::memcmp(info.get(), FullInfo(1800000000).get(), sizeof(Info)));
  const std::string text(5000, 't');
  WriteRecord(Lines(std::regex_replace(kPairs, std::regex("=[^|]*"), "=" + text)));
  EXPECT_EQ(0, VARNKIVOAccountGet(info.get()));
  for (const char* field : {info->email, info->userId, info->authKey}) EXPECT_EQ(text.substr(0, 2047), field);
  for (const char* field : {info->name, info->criticalVersionList, info->criticalVersionDomain})
    EXPECT_EQ(text.substr(0, 1023), field);
  for (const char* field : {info->country, info->timezone, info->notifyLanguage}) EXPECT_EQ(text.substr(0, 255), field);
  EXPECT_STREQ("password", info->password);
}

TEST(AccountInfo, SetWritesTheIdentityAndTheProfileOnlyWithAQueryTimeUpToAWriteThatFails) {
  for (const int time : {0, -1, 1800000000}) {
    const std::size_t count = time > 0 ? kCount : kIdentity;
    for (std::size_t written = 0; written <= count; ++written) {
      FakePlatform device;
      const bool fails = written < count;
      if (fails) device.FailAfter("VLIBCFileSetKeyValue", static_cast<int>(written));
      EXPECT_EQ(fails ? -1 : 0, VARNKIVOAccountSet(FullInfo(time).get()));
      EXPECT_EQ(fails ? KIVO_ERR_CONFIG_WRITE : KIVO_ERR_SUCCESS, VARNKIVOErrGet());
      EXPECT_EQ(Lines(kPairs, written), ReadFile(kRecord)) << time;
      EXPECT_EQ(fails, device.HasLog("Failed on VARNKIVOAccountSet: "));
    }
  }
  FakePlatform device;
  auto info = FullInfo(0);
  std::memset(info->email, 'e', sizeof info->email);  // no terminator: it ends at its size
  EXPECT_EQ(0, VARNKIVOAccountSet(info.get()));
  EXPECT_EQ(0u, ReadFile(kRecord).find("kivoID=\"" + std::string(4096, 'e') + "\"\n"));
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
  const struct {
    std::string call;  // that fails; or the plug-in itself, at `action`
    int action;
    std::string lines, seen;
    bool isThere, hasGroup;
  } rows[] = {{"", 0, "", both, false, true},
              {"", 0, at + "32 Failed to write " + kGroup + ", reason=No such file or directory\n", both, false, false},
              {"VLIBPluginSDKInit", 0, at + "53 VLIBPluginSDKInit failed\n", "", true, true},
              {"", 4, at + "59 VLIBPluginAction failed, action=4\n", pre, true, true},
              {"", 5, at + "75 VLIBPluginAction failed, action=5\n", both, false, true}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lines);
    SignedIn bench(row.action);
    std::filesystem::remove(kGroup);
    if (row.hasGroup) WriteFile(kGroup, "");
    if (!row.call.empty()) bench.device.FailNext(row.call);
    EXPECT_EQ(kStatus, VARNKIVOAccountRemove());
    EXPECT_EQ(row.lines, Transcript(bench.device));
    EXPECT_EQ(row.seen, ReadFile(kSeen));
    EXPECT_EQ(row.isThere, IsThere(kRecord));
    EXPECT_EQ(row.hasGroup ? "0" : "", ReadFile(kGroup));  // the child has left the caller's control group
  }
}

TEST(Removal, RaisesItsIdsOrKeepsTheRecord) {
  for (const id_t saved : {1000u, 0u}) {
    SignedIn bench;
    const std::string seen = AsUser(1000, 1000, saved, [&] {
      const int status = VARNKIVOAccountRemove();
      return std::to_string(status) + " " + Ids() + "\n" + Transcript(bench.device);
    });
    const std::string ids = "1000,1000," + std::to_string(saved);
    EXPECT_THAT(seen, testing::StartsWith("65280 " + ids + " " + ids + "\n"));
    EXPECT_EQ(saved != 0, seen.find("\n3 kivo_config_remove:69 Change permission failed\n") != std::string::npos);
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
}

TEST(ReportJob, RunsTheToolAsRootAtTheSchedule) {
  const std::string command = " root /usr/varn/bin/varnkivo --report_info\n";
  FakePlatform device;
  ASSERT_TRUE(VARNKIVOAccountRegisterCrond());
  EXPECT_THAT(ReadFile(kCronJob), testing::ContainsRegex("\n[1-5]?[0-9] (9|1[0-6]) [*] [*] [1-5]" + command));
  User().SetReportCronTimestring("30 4 * * 2");
  ASSERT_TRUE(VARNKIVOAccountRegisterCrond());
  const std::string before = ReadFile(kCronJob);
  EXPECT_THAT(before, testing::EndsWith("\n30 4 * * 2" + command));
  for (const char* schedule : {"0 9 * * 1\n* * * * * root id", "0 9 * * 1 root id #", "@reboot"}) {
    User().SetReportCronTimestring(schedule);
    EXPECT_FALSE(VARNKIVOAccountRegisterCrond()) << schedule;
    EXPECT_EQ(before, ReadFile(kCronJob)) << schedule;
  }
  device.FailNext("ConfigManager::Remove", 1, 0);
  EXPECT_FALSE(VARNKIVOAccountUnregisterCrond());
  EXPECT_TRUE(IsThere(kCronJob) && VARNKIVOAccountUnregisterCrond() && !IsThere(kCronJob));
}

}  // namespace
