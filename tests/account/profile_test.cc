// Registration and the profile update: exactly what is sent, and what each answer means.
#include <gmock/gmock.h>
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>

#include "account_bench.h"
#include "process.h"
#include "sim/device_token.h"

using namespace accounttest;
using namespace testsupport;
using kivosim::Fault;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char kRegister[] = "device/api/user/register", kUpdate[] = "device/api/user/update";
constexpr char kNotifications[] = "/usr/varn/var/log/notifications.jsonl";

/// The next request of `path` has this answer, and the simulator does nothing about it.
void Answer(Bench& bench, const std::string& path, const std::string& body, int status = 200) {
  Fault fault = Fault::Answer(status, body);
  fault.skipHandler = true;
  bench.cloud->QueueFault(path, fault);
}

/// What was asked for with the last request, without the sender's two fields.
std::vector<std::string> Sent(const Bench& bench) {
  auto sent = Texts(bench.cloud.Requests().at(0).form);
  sent.erase(sent.begin(), sent.begin() + 2);
  return sent;
}

struct Operation {
  std::string source, path, send;
  std::function<int()> run;
};
const Operation kOperations[] = {
    {"kivo_account_register", kRegister, "failed to send https request. err=[0x",
     [] { return VARNKIVOAccountRegister(kEmail, kPassword, "Ann", false, true, false, nullptr); }},
    {"kivo_account_set_info", kUpdate, "Failed to send https request. err=[0x", [] {
       return VARNKIVOAccountSetInfo("Ann", nullptr, kPassword, nullptr, nullptr, nullptr, nullptr, -1, -1, -1,
                                     nullptr);
     }}};

TEST(Profile, RegistrationSendsItsFieldsInOrder) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  for (const char* country : {static_cast<const char*>(nullptr), "DEU", ""}) {
    Bench bench;
    WriteFile(kDeviceConf, country ? "language=\"ger\"\n" : "");
    Answer(bench, kRegister, "good");
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    EXPECT_EQ(0, VARNKIVOAccountRegister("a+b@c", kPassword, "Ann & Co", true, false, true, country));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    std::vector<std::string> expected = {"email=a+b@c",
                                         std::string("passwd=") + kPassword,
                                         "full_name=Ann & Co",
                                         "serial_no=2040VKN000001",
                                         country ? "notify_lang=ger" : "notify_lang=enu",
                                         "token=" + kivosim::DeviceToken(kSerial, "", ""),
                                         "timezone=Europe/Berlin",
                                         "critical_release=true",
                                         "enews_local_promotion=true",
                                         "enews=false"};
    if (country) expected.push_back("country=" + std::string(country));
    EXPECT_EQ(expected, Sent(bench));
    EXPECT_THAT(bench.device.Calls("CURLOPT_TIMEOUT("), ElementsAre("CURLOPT_TIMEOUT(120)"));
    EXPECT_FALSE(IsThere(kRecord));
  }
}

TEST(Profile, UpdateSendsExactlyWhatWasGiven) {
  const std::string password = std::string("passwd=") + kPassword;
  const struct {
    const char *name, *email, *password, *newPassword, *country, *language, *zone;
    int enews, release, promotion;
    const char* list;
    std::vector<std::string> sent;
  } rows[] = {{"Ann", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, -1, -1, -1, nullptr, {"full_name=Ann"}},
              {nullptr, "e", nullptr, "n", nullptr, nullptr, nullptr, -1, -1, -1, nullptr, {}},
              {nullptr,
               "e",
               kPassword,
               nullptr,
               nullptr,
               nullptr,
               nullptr,
               -7,
               0,
               5,
               nullptr,
               {password, "email=e", "critical_release=false", "enews_local_promotion=true"}},
              {"",
               "e",
               kPassword,
               "n",
               "DEU",
               "ger",
               "UTC",
               0,
               1,
               0,
               "a,b",
               {"full_name=", password, "email=e", "passwd_new=n", "passwd_confirmation=n", "country=DEU",
                "notify_lang=ger", "timezone=UTC", "enews=false", "critical_release=true",
                "enews_local_promotion=false", "critical_version_list=a,b"}}};
  for (const auto& row : rows) {
    Bench bench;
    bench.SignIn(0);
    const std::string record = ReadFile(kRecord);
    Answer(bench, kUpdate, "good, with a tail");
    EXPECT_EQ(0, VARNKIVOAccountSetInfo(row.name, row.email, row.password, row.newPassword, row.country, row.language,
                                        row.zone, row.enews, row.release, row.promotion, row.list));
    std::vector<std::string> expected = {"id=1001", std::string("auth_key=") + kAuthKey, "serial_no=2040VKN000001"};
    expected.insert(expected.end(), row.sent.begin(), row.sent.end());
    EXPECT_EQ(expected, Sent(bench));
    EXPECT_EQ(record, ReadFile(kRecord));
  }
}

TEST(Profile, FailingStepGivesItsCodeAndMessageAndSendsNothing) {
  const struct {
    std::string sources, call;
    int before, result, code;
    std::string message;
  } steps[] = {
      {"register set_info", "VLIBGetSerialNumber", 0, -1, KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x0700"},
      {"register set_info", "VARNKIVOServerConfigGet", 0, -1, KIVO_ERR_SERVER_CONFIG,
       "VARNKIVOServerConfigGet, code=6"},
      {"register", "VARNCloudServiceLutokenGenerateToken", 0, -1, KIVO_ERR_TOKEN,
       "VARNCloudServiceLutokenGenerateToken Failed, err=[0x0700 fake.c:1]"},
      {"register", "VARNZoneGet", 0, -1, KIVO_ERR_SUCCESS, "failed to get time zone, size need: "},
      {"register", "VARNZoneGetInfo", 0, 0, KIVO_ERR_SYSTEM, "failed to get timezone info[0x0700 fake.c:1]"},
      {"register", "VLIBCSzHashAlloc", 1, 0, KIVO_ERR_SYSTEM, "Failed to alloc https request, err=[0x0700 fake.c:1]"},
      {"set_info", "VLIBCSzHashAlloc", 1, 0, KIVO_ERR_SYSTEM, "Failed to alloc https request, err=[0x0700 fake.c:1]"},
      {"set_info", "", 0, 0, KIVO_ERR_NO_ACCOUNT, "VARNKIVOAccountGet failed"}};
  for (const auto& step : steps) {
    for (const Operation& operation : kOperations) {
      if (step.sources.find(operation.source.substr(13)) == std::string::npos) continue;
      SCOPED_TRACE(operation.source + ": " + step.message);
      Bench bench;
      if (!step.call.empty()) {
        bench.SignIn(0);
        bench.device.FailAfter(step.call, step.before, step.result);
      }
      EXPECT_EQ(-1, operation.run());
      EXPECT_EQ(step.code, VARNKIVOErrGet());
      EXPECT_THAT(bench.device.LastLine(), StartsWith(operation.source + " " + step.message));
      EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
    }
  }
  const Bench bench;
  EXPECT_EQ(-1, VARNKIVOAccountRegister(nullptr, "p", "n", false, false, false, "c"));
  EXPECT_EQ(-1, VARNKIVOAccountRegister("e", nullptr, "n", false, false, false, "c"));
  EXPECT_EQ(-1, VARNKIVOAccountRegister("e", "p", nullptr, false, false, false, "c"));
  EXPECT_EQ(KIVO_ERR_BAD_PARAM, VARNKIVOErrGet());
  EXPECT_THAT(bench.device.Logs(), ElementsAre("Bad Parameters", "Bad Parameters", "Bad Parameters"));
}

TEST(Profile, RefusalsHaveTheirCode) {
  const struct {
    int status;
    std::string body;
    int code;
  } rows[] = {{503, "good", KIVO_ERR_SEND},
              {400, "account_inused", KIVO_ERR_ACCOUNT_IN_USE},
              {200, "serial_exceed_max_account_register", KIVO_ERR_ACCOUNT_LIMIT},
              {200, "badauth", KIVO_ERR_AUTH},
              {200, R"({"code":"good"})", KIVO_ERR_UNKNOWN},
              {200, "goo", KIVO_ERR_UNKNOWN}};
  for (const auto& row : rows) {
    for (const Operation& operation : kOperations) {
      SCOPED_TRACE(operation.source + ": " + row.body);
      Bench bench;
      bench.SignIn(0);
      Answer(bench, operation.path, row.body, row.status);
      EXPECT_EQ(-1, operation.run());
      EXPECT_EQ(row.code, VARNKIVOErrGet());
      const std::string who = operation.path == kRegister ? "Failed to register ann@example.com, resp="
                                                          : "Failed to update account:1001, resp=";
      EXPECT_THAT(bench.device.LastLog(), StartsWith(row.status == 503 ? operation.send : who + row.body));
    }
  }
}

int CountOf(const std::vector<std::string>& calls, const std::string& name) {
  return static_cast<int>(std::count_if(calls.begin(), calls.end(),
                                        [&](const std::string& call) { return call.rfind(name + "(", 0) == 0; }));
}

TEST(Profile, ANewPasswordIsAnnouncedAndNothingOfThatCanFailIt) {
  const struct {
    std::string call, logged;
  } rows[] = {{"", ""},
              {"VARNSysNotifySendNotifiction", "Send notification failed"},
              {"VLIBCSzHashSetValue", "Cant set kivo account"},
              {"VLIBCSzHashAlloc", "Failed to alloc notification hash, err=[0x0700 fake.c:1]"},
              {"query", "VARNKIVOAccountQueryInfo failed, code=4"}};
  std::vector<std::string> calls;  // of the first row, where nothing fails: the last of each kind is the announcement's
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    unlink(kNotifications);
    Bench bench;
    bench.SignIn(row.call == "query" ? 300 : 299);  // from the record, or asked for
    Answer(bench, kUpdate, "good");
    if (row.call == "query")
      Answer(bench, kQuery, "", 503);
    else if (!row.call.empty())
      bench.device.FailAfter(row.call, CountOf(calls, row.call) - 1, row.call == "VLIBCSzHashAlloc" ? 0 : -1);
    bench.device.ForgetCalls();
    EXPECT_EQ(0, VARNKIVOAccountSetInfo(nullptr, nullptr, kPassword, "new password", nullptr, nullptr, nullptr, -1, -1,
                                        -1, nullptr));
    if (calls.empty()) calls = bench.device.Calls();
    EXPECT_EQ(row.logged, bench.device.LastLog());
    const std::string sent = ReadFile(kNotifications);
    EXPECT_EQ(row.logged.empty(), !sent.empty());
    if (!sent.empty()) {
      EXPECT_EQ(R"(KivoPasswordChanged {"%KIVO_ACCOUNT%":"ann@example.com"})",
                ParseJson(sent)["tag"].asString() + " " + JsonText(ParseJson(sent)["params"]));
    }
  }
}

}  // namespace
