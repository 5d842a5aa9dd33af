// Registration and the profile update: exactly what is sent, and the word about a new password.
#include <gmock/gmock.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>

#include "account_bench.h"

using namespace accounttest;
using testing::ElementsAre;

namespace {

const std::string kPasswordField = "passwd=correct%20horse%20%26%20%2Bbattery";

TEST(Profile, RegistrationSendsItsFieldsInOrder) {
  WriteFile("/etc/timezone", "Europe/Berlin\n");
  for (const char* country : {static_cast<const char*>(nullptr), "DEU", ""}) {
    Bench bench;
    WriteFile(kDeviceConf, country ? "language=\"ger\"\n" : "");
    bench.Answer("*", "good");
    VARNKIVOErrSet(KIVO_ERR_UNKNOWN);
    EXPECT_EQ(0, VARNKIVOAccountRegister("a+b@c", kPassword, "Ann & Co", true, false, true, country));
    EXPECT_EQ(KIVO_ERR_SUCCESS, VARNKIVOErrGet());
    EXPECT_THAT(bench.Sent(),
                ElementsAre("POST /device/api/user/register account.kivo.example " + DeviceFields() +
                            "&email=a%2Bb%40c&" + kPasswordField + "&full_name=Ann%20%26%20Co&serial_no=2040VKN000001" +
                            "&notify_lang=" + (country ? "ger" : "enu") + "&token=" + DeviceFields().substr(29) +
                            "&timezone=Europe%2FBerlin&critical_release=true&enews_local_promotion=true&enews=false" +
                            (country ? std::string("&country=") + country : "")));
    EXPECT_THAT(bench.device.Calls("CURLOPT_TIMEOUT("), ElementsAre("CURLOPT_TIMEOUT(120)"));
    EXPECT_FALSE(IsThere(kRecord));
  }
}

TEST(Profile, UpdateSendsExactlyWhatWasGiven) {
  const struct {
    const char *name, *email, *password, *newPassword, *country, *language, *zone, *list;
    int enews, release, promotion;
    std::string sent;
  } rows[] = {
      {"Ann", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, -1, -1, -1, "&full_name=Ann"},
      {nullptr, "e", nullptr, "n", nullptr, nullptr, nullptr, nullptr, -1, -1, -1, ""},
      {nullptr, "e", kPassword, nullptr, nullptr, nullptr, nullptr, nullptr, -7, 0, 5,
       "&" + kPasswordField + "&email=e&critical_release=false&enews_local_promotion=true"},
      {"", "e", kPassword, "n", "DEU", "ger", "UTC", "a,b", 0, 1, 0,
       "&full_name=&" + kPasswordField + "&email=e&passwd_new=n&passwd_confirmation=n&country=DEU&notify_lang=ger" +
           "&timezone=UTC&enews=false&critical_release=true&enews_local_promotion=false&critical_version_list=a%2Cb"}};
  for (const auto& row : rows) {
    Bench bench;
    bench.SignIn(0);
    const std::string record = ReadFile(kRecord);
    bench.Answer("*", "good, with a tail");
    EXPECT_EQ(0, VARNKIVOAccountSetInfo(row.name, row.email, row.password, row.newPassword, row.country, row.language,
                                        row.zone, row.enews, row.release, row.promotion, row.list));
    EXPECT_EQ("POST /device/api/user/update account.kivo.example " + DeviceFields() +
                  "&id=1001&auth_key=AuthKey%2B0123456789%2Fabcdef%3D%3D&serial_no=2040VKN000001" + row.sent,
              bench.Sent().at(0));
    EXPECT_EQ(record, ReadFile(kRecord));
  }
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
    Bench bench;
    bench.SignIn(row.call == "query" ? 300 : 299);  // from the record, or asked for
    bench.Answer("device/api/user/update", "good");
    const auto isFailing = [&](const std::string& call) { return call.rfind(row.call + "(", 0) == 0; };
    const auto count = std::count_if(calls.begin(), calls.end(), isFailing);
    if (row.call == "query")
      bench.Answer(kQuery, "", 503);
    else if (!row.call.empty())
      bench.device.FailAfter(row.call, static_cast<int>(count) - 1, row.call == "VLIBCSzHashAlloc" ? 0 : -1);
    bench.device.ForgetCalls();
    EXPECT_EQ(0, VARNKIVOAccountSetInfo(nullptr, nullptr, kPassword, "new password", nullptr, nullptr, nullptr, -1, -1,
                                        -1, nullptr));
    if (calls.empty()) calls = bench.device.Calls();
    EXPECT_EQ(row.logged, bench.device.LastLog());
    EXPECT_EQ(row.logged.empty() ? R"(KivoPasswordChanged {"%KIVO_ACCOUNT%":"ann@example.com"})" : "", Notification());
  }
}

}  // namespace
