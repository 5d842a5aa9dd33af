// The account record as other programs see it: what setters leave, getters make of any file, and which ids the process
// has meanwhile; the functions over it: the fixed-size structure and the removal in a process.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

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

TEST(Record, AFailedSetHasItsCodeShowsNoSecretAndLeavesModeAndOwner) {
  FakePlatform device;
  WriteFile(kRecord, "");  // root's, and everybody may read it
  device.FailNext("VLIBCFileSetKeyValue");
  EXPECT_EQ("code 19", Result([] { return User().SetAuthKey("0123456789-secret"), "set"; }).substr(0, 7));
  EXPECT_EQ("3 user:379 Failed to set kivo config for lu_auth_key:0123456789\n", Transcript(device));
  EXPECT_EQ("0600 934:934", ModeAndOwner(kRecord));
}

constexpr char kContent[] = "kivoID=\"a@b\"\nkivoIDSerial=\"1001\"\nlu_auth_key=\"key\"\n";

TEST(RecordIds, RaisedForOtherUsersOnlyAndPutBackWhateverFails) {
  const std::string in = "WARNING: setresgid(-1, 0, -1)|WARNING: setresuid(-1, 0, -1)|";
  const std::string denied = " [Operation not permitted]|ERROR: ", ids = "1000,1000,0 1000,1000,0";
  const struct {
    uid_t id;
    std::string ids, traced;  // afterwards, and in between
    const char* call = "";    // that fails, after `before` others
    int before = 0;
  } rows[] = {
      {0, "0,0,0 0,0,0", ""},
      {934, "934,934,0 934,934,0", ""},
      {1000, ids, in + "WARNING: setresgid(-1, 1000, -1)|WARNING: setresuid(-1, 1000, -1)|"},
      {1000, ids, "ERROR: setresgid(-1, 0, -1)" + denied + "ENTERCriticalSection|", "setresgid"},
      {1000, ids,
       "WARNING: setresgid(-1, 0, -1)|ERROR: setresuid(-1, 0, -1)" + denied +
           "ENTERCriticalSection|WARNING: setresgid(-1, 1000, -1)|",
       "setresuid"},
      {1000, "1000,1000,0 1000,0,0",
       in + "ERROR: setresgid(-1, 1000, -1) [Operation not permitted]|WARNING: setresuid(-1, 1000, -1)|" +
           "ERROR: LEAVECriticalSection|",
       "setresgid", 1},
      {1000, "1000,0,0 1000,1000,0",
       in + "WARNING: setresgid(-1, 1000, -1)|ERROR: setresuid(-1, 1000, -1)" + denied + "LEAVECriticalSection|",
       "setresuid", 1}};
  for (const auto& row : rows)
    for (const bool set : {false, true}) {
      SCOPED_TRACE(row.traced);
      FakePlatform device;
      WriteRecord(kContent);
      const bool stopped = row.traced.find("ENTER") != std::string::npos;
      const std::string failed = set ? "Failed to change permission|" : "Change permission failed|";
      std::string expected = (stopped ? "code 6" : set ? "set" : "a@b") + ("\n" + row.ids + "\n"), line;
      for (std::istringstream lines(row.traced + (stopped ? failed : "")); std::getline(lines, line, '|');) {
        const char* const priority = line[0] == 'W' ? "39" : line[0] == 'E' ? "35" : "3";
        expected += priority + std::string(set ? " user:379 " : " user:340 ") + line + "\n";
      }
      EXPECT_EQ(expected, AsUser(row.id, row.id, 0, [&] {
                  if (*row.call) device.FailAfter(row.call, row.before);
                  const auto access = [&] { return set ? (User().SetEmail("c@d"), "set") : User().GetEmail(); };
                  const std::string result = Result(access);
                  return result.substr(0, result.find(':')) + "\n" + Ids() + "\n" + Transcript(device);
                }));
      EXPECT_EQ(set && !stopped, ReadFile(kRecord) != kContent);
      EXPECT_EQ("0600 934:934", ModeAndOwner(kRecord));
    }
}

// What VARNKIVOAccountSet writes of FullInfo(), in this order.
const std::string kPairs =
    "kivoID=ann@example.com|lu_auth_key=auth key|kivoIDSerial=1001|full_name=Ann|country=DEU|timezone=Europe/Berlin|"
    "notify_language=ger|activated=yes|disabled=no|enews=yes|enews_local_promotion=no|critical_release=yes|"
    "critical_version_list=a,c|critical_version_domain=a,b,c|last_query_time=1800000000";

std::unique_ptr<Info> FullInfo(int lastQueryTime) {
  return std::unique_ptr<Info>(new Info{"ann@example.com", "password", "1001", "auth key", "Ann", "DEU",
                                        "Europe/Berlin", "ger", "a,c", "a,b,c", 1, 0, 1, 1, 0, lastQueryTime});
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
  const Info before = *info;
  for (const char* record : {"", "kivoID=\"a@b\"\nlu_auth_key=\"k\"\n", "kivoIDSerial=\"1\"\n"}) {
    WriteRecord(record);
    EXPECT_EQ(-1, VARNKIVOAccountGet(info.get())) << record;
    EXPECT_EQ(KIVO_ERR_NO_ACCOUNT, VARNKIVOErrGet()) << record;
    EXPECT_EQ(0, std::memcmp(info.get(), &before, sizeof(Info))) << record;
  }
}

TEST(AccountInfo, SetWritesTheIdentityAndTheProfileOnlyWithAQueryTime) {
  for (const int time : {0, -1, 1800000000}) {
    FakePlatform device;
    EXPECT_EQ(0, VARNKIVOAccountSet(FullInfo(time).get()));
    EXPECT_EQ(Lines(kPairs, time > 0 ? 15 : 3), ReadFile(kRecord)) << time;
  }
  FakePlatform device;
  auto info = FullInfo(0);
  std::memset(info->email, 'e', sizeof info->email);  // no terminator: it ends at its size
  EXPECT_EQ(0, VARNKIVOAccountSet(info.get()));
  EXPECT_EQ(0u, ReadFile(kRecord).find("kivoID=\"" + std::string(4096, 'e') + "\"\n"));
  device.FailNext("VLIBCFileSetKeyValue");
  EXPECT_EQ(-1, VARNKIVOAccountSet(info.get()));
  EXPECT_EQ(KIVO_ERR_CONFIG_WRITE, VARNKIVOErrGet());
  EXPECT_TRUE(device.HasLog("Failed on VARNKIVOAccountSet: "));
}

constexpr int kStatus = 0xff00;  // of _exit(-1), whatever happened
constexpr char kSeen[] = "/tmp/plug-in.seen", kGroup[] = "/sys/fs/cgroup/systemd/cgroup.procs";

TEST(Removal, StepsAreDoneInOrderAndTheCallerLogsWhatFailed) {
  const std::string pre = "kivo/logout 4 there\n", both = pre + "kivo/logout 5 gone\n", at = "3 kivo_config_remove:";
  const struct {
    int action;  // at which the plug-in fails
    std::string lines, seen;
    bool isThere, hasGroup;
  } rows[] = {{0, "", both, false, true},
              {0, at + "32 Failed to write " + kGroup + ", reason=No such file or directory\n", both, false, false},
              {4, at + "59 VLIBPluginAction failed, action=4\n", pre, true, true},
              {5, at + "75 VLIBPluginAction failed, action=5\n", both, false, true}};
  const std::string folder = "/usr/varn/lib/plugins/kivo/kivo/logout", script = folder + "/10-witness";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.lines);
    FakePlatform device;
    std::filesystem::create_directories(folder);
    WriteRecord("kivoID=\"a@b\"\n");
    WriteFile(script, std::string("#!/bin/sh\ntest -e ") + kRecord + " && record=there || record=gone\n" +
                          "echo $VARN_PLUGIN_EVENT $VARN_PLUGIN_ACTION $record >>" + kSeen +
                          "\nsleep 0.05\ntest $VARN_PLUGIN_ACTION != " + std::to_string(row.action) + "\n");
    EXPECT_EQ(0, chmod(script.c_str(), 0755));
    for (const char* path : {kSeen, kGroup}) std::filesystem::remove(path);
    if (row.hasGroup) WriteFile(kGroup, "");
    EXPECT_EQ(kStatus, VARNKIVOAccountRemove());
    EXPECT_EQ(row.lines, Transcript(device));
    EXPECT_EQ(row.seen, ReadFile(kSeen));
    EXPECT_EQ(row.isThere, IsThere(kRecord));
    EXPECT_EQ(row.hasGroup ? "0" : "", ReadFile(kGroup));  // the child has left the caller's control group
  }
}

}  // namespace
