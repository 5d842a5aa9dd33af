// The account record as other programs see it: which bytes a setter leaves, what a getter makes of any file, and which
// ids the process has meanwhile.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <sstream>

#include "account_bench.h"

using namespace accounttest;
using namespace testsupport;
using varnkivo::User;

namespace {

struct Key {
  std::string key, byDefault;
  std::function<std::string()> get;  // of a flag: "yes" or "no"
  std::function<void(const std::string&)> set;
  bool IsFlag() const { return byDefault == "yes" || byDefault == "no"; }
};

Key Text(const char* key, std::string (User::*get)() const, void (User::*set)(const std::string&) const,
         const char* byDefault = "") {
  return {key, byDefault, [=] { return (User().*get)(); }, [=](const std::string& value) { (User().*set)(value); }};
}

Key Flag(const char* key, bool (User::*get)() const, void (User::*set)(bool) const, const char* byDefault = "no") {
  const auto setFlag = [=](const std::string& value) { (User().*set)(value == "yes"); };
  return {key, byDefault, [=] { return (User().*get)() ? "yes" : "no"; }, setFlag};
}

const Key kTime = {"last_query_time", "0", [] { return std::to_string(User().GetLastQueryTime()); },
                   [](const std::string& value) { User().SetLastQueryTime(std::stoll(value)); }};
const std::vector<Key> kKeys = {
    Text("account_host", &User::GetAccountHost, &User::SetAccountHost),
    Text("identity_host", &User::GetIdentityHost, &User::SetIdentityHost),
    Text("kivoID", &User::GetEmail, &User::SetEmail),
    Text("kivoIDSerial", &User::GetUserId, &User::SetUserId),
    Text("lu_auth_key", &User::GetAuthKey, &User::SetAuthKey),
    Text("full_name", &User::GetName, &User::SetName),
    Text("country", &User::GetCountry, &User::SetCountry),
    Text("timezone", &User::GetTimezone, &User::SetTimezone),
    Text("notify_language", &User::GetNotifyLanguage, &User::SetNotifyLanguage),
    Text("critical_version_list", &User::GetCriticalVersionList, &User::SetCriticalVersionList),
    Text("critical_version_domain", &User::GetCriticalVersionDomain, &User::SetCriticalVersionDomain),
    Text("report_cron_timestring", &User::GetReportCronTimestring, &User::SetReportCronTimestring, "~ 9~16 * * 1~5"),
    kTime,
    Flag("activated", &User::GetIsActivated, &User::SetIsActivated),
    Flag("disabled", &User::GetIsDisabled, &User::SetIsDisabled),
    Flag("enews", &User::GetIsEnews, &User::SetIsEnews),
    Flag("critical_release", &User::GetIsCriticalRelease, &User::SetIsCriticalRelease),
    Flag("enews_local_promotion", &User::GetIsEnewsLocalPromotion, &User::SetIsEnewsLocalPromotion),
    Flag("realname_validation_pass", &User::GetIsRealnameValidationPass, &User::SetIsRealnameValidationPass, "yes")};

/// The keys that do not read as their default, and "exists".
std::string NotDefault() {
  std::string keys;
  for (const Key& key : kKeys) keys += key.get() == key.byDefault ? "" : key.key + " ";
  return keys + (User().Exists() ? "exists" : "");
}

int CodeOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const varnkivo::KivoException& error) {
    return error.GetCode();
  }
  return KIVO_ERR_SUCCESS;
}

TEST(Record, SetterWritesItsOwnKeyInPlaceAndNoOther) {
  for (const Key& key : kKeys) {
    std::vector<std::string> values = {"value of it", "new value"};
    if (key.IsFlag()) values = {"yes", "no"};
    if (key.key == kTime.key) values = {"-9223372036854775808", "-5", "4294967296", "9223372036854775807"};
    FakePlatform device;
    EXPECT_EQ("", NotDefault());
    WriteRecord(Line(key.key, ""));
    EXPECT_EQ("", NotDefault());
    WriteRecord("# a comment\n" + Line(key.key, "old") + "foreign=\"1\"\n");
    for (const std::string& value : values) {
      key.set(value);
      EXPECT_EQ("# a comment\n" + Line(key.key, value) + "foreign=\"1\"\n", ReadFile(kRecord));
      EXPECT_EQ(value, key.get());
      const std::string changed = value == key.byDefault ? "" : key.key + " ";
      EXPECT_EQ(changed + (key.key == "kivoID" ? "exists" : ""), NotDefault());
    }
  }
}

TEST(Record, FlagsKnowTwoWordsAndNumbersAreWholeOrTheDefault) {
  FakePlatform device;
  for (const Json::Value& row : ParseJson(R"([["yes", "yes", 0], ["true", "yes", 0], ["no", "no", 0], ["TRUE", "no", 0],
      ["yes ", "no", 0], ["1", "no", 1], ["-5", "no", -5], ["12abc", "no", 0], [" 12", "no", 0], ["1e3", "no", 0],
      ["0x10", "no", 0], ["-", "no", 0], ["9223372036854775807", "no", 9223372036854775807],
      ["9223372036854775808", "no", 0], ["-9223372036854775809", "no", 0]])")) {
    SCOPED_TRACE(row[0].asString());
    WriteRecord(Line(kTime.key, row[0].asString()));
    EXPECT_EQ(row[2].asInt64(), User().GetLastQueryTime());
    for (const Key& key : kKeys) {
      WriteRecord(Line(key.key, row[0].asString()));
      EXPECT_EQ(key.key == kTime.key ? row[2].asString() : row[key.IsFlag() ? 1 : 0].asString(), key.get());
    }
  }
}

TEST(Record, AnyValueReadsBackUpTo2047BytesAndNoneCanAddAKey) {
  FakePlatform device;
  std::vector<std::string> values = {"x\"\naccount_host=\"https://evil.example", "\\\"\r\n", "x\\", "\"", "$(id) `id`"};
  for (const char* value : {"\t\x01\x7f", "a=b", "# x", " both ends ", "Änn"}) values.push_back(value);
  for (const std::size_t length : {2046u, 2047u, 2048u, 5000u}) values.push_back(std::string(length - 1, 'a') + "z");
  for (const std::string& value : values) {
    User().SetName(value);
    User().SetCountry("DEU");
    EXPECT_EQ(value.substr(0, 2047), User().GetName());
    EXPECT_EQ("full_name country ", NotDefault());
    const std::string file = ReadFile(kRecord);
    EXPECT_EQ(2, std::count(file.begin(), file.end(), '\n')) << file;
    EXPECT_EQ(value.size() > 100, file == Line("full_name", value) + Line("country", "DEU") && value.back() == 'z');
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
    EXPECT_EQ(fails ? KIVO_ERR_CONFIG_WRITE : KIVO_ERR_SUCCESS, CodeOf([] { User().SetCountry("DEU"); }));
    EXPECT_EQ("0600 934:934", ModeAndOwner(kRecord));
  }
  EXPECT_EQ("3 user:379 Failed to set kivo config for country:DEU\n", Transcript(device));
}

TEST(Record, EachPartOfASetThatFailsIsLogged) {
  FakePlatform device;
  const std::string path = std::string(", path=") + kRecord + ", reason=", secret = "0123456789-not-in-the-log";
  const auto lines = [&](const std::string& reason) {
    return "3 user:379 Failed to chmod" + path + reason + "\n3 user:379 Failed to chown" + path + reason + "\n";
  };
  device.MustNotLog(secret);
  device.FailNext("VLIBCFileSetKeyValue");
  EXPECT_EQ(KIVO_ERR_CONFIG_WRITE, CodeOf([&] { User().SetAuthKey(secret); }));  // and there is no file
  EXPECT_TRUE(device.HasLog("Failed to set kivo config for lu_auth_key:0123456789")) << Transcript(device);
  EXPECT_EQ(lines("No such file or directory"), Transcript(device, 1));
  const std::size_t before = device.Lines().size();
  for (const char* call : {"fchmod", "fchown"}) device.FailNext(call, 2);
  EXPECT_EQ(KIVO_ERR_SUCCESS, CodeOf([] { User().SetName("Ann"); }));
  device.StopFailing();
  EXPECT_EQ(lines("Operation not permitted") + "Ann", Transcript(device, before) + User().GetName());
}

TEST(Record, WritersOfDifferentKeysLoseNothing) {
  FakePlatform device;
  constexpr int kWriters = 16, kRounds = 100;
  const auto value = [](const Key& key, int round) {
    return key.IsFlag() ? (round % 2 ? "yes" : "no") : std::to_string(round);
  };
  for (int writer = 0; writer < kWriters; ++writer) {
    if (fork() != 0) continue;
    const Key& key = kKeys[static_cast<std::size_t>(writer)];
    int lost = 0;  // sets that were gone at once: nobody else writes this key
    for (int round = 0; round < kRounds; ++round) {
      key.set(value(key, round));
      lost += key.get() != value(key, round);
    }
    _exit(lost);
  }
  for (int i = 0, status = -1; i < kWriters; ++i) EXPECT_TRUE(wait(&status) > 0 && status == 0) << status;
  std::string expected;
  for (std::size_t i = 0; i < kWriters; ++i)
    expected += value(kKeys[i], kRounds - 1) == kKeys[i].get() ? "" : kKeys[i].key;
  EXPECT_EQ("", expected) << "lost at the end";
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
      [0, 0, "0,0,0 0,0,0", []], [0, 1000, "0,0,0 1000,1000,0", []], [934, 934, "934,934,0 934,934,0", []],
      [1000, 0, "1000,1000,0 0,0,0", ["uid(-1, 0, -1)", "uid(-1, 1000, -1)"]],
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

TEST(RecordIds, FailedWritePutsThemBackAndUserWithoutAWayToRootChangesNothing) {
  FakePlatform device;
  WriteRecord(kContent);
  const std::string failed = AsUser(1000, 1000, 0, [&] {
    device.FailNext("VLIBCFileSetKeyValue");
    return Try(device, true);
  });
  EXPECT_THAT(failed, testing::StartsWith("code 19\n1000,1000,0 1000,1000,0\n"));
  const std::string denied = AsUser(1000, 1000, 1000, [&] {
    _tag_kivo_INFO_ info = {};
    std::string out = Try(device, false).substr(0, 6) + " " + Try(device, true).substr(0, 6);
    for (const bool set : {false, true}) {
      VARNKIVOErrSet(0);
      const int result = set ? VARNKIVOAccountSet(&info) : VARNKIVOAccountGet(&info);
      out += " " + std::to_string(result) + " " + std::to_string(VARNKIVOErrGet());
    }
    return out + (VARNKIVOAccountRegisterCrond() ? " a job" : " no job");
  });
  EXPECT_EQ("code 6 code 6 -1 6 -1 6 no job", denied);
  EXPECT_EQ(kContent, ReadFile(kRecord));
  EXPECT_FALSE(IsThere(kCronJob));
}

}  // namespace
