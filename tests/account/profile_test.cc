// Registration and the profile update: exactly what is sent, and the word about a new password.
#include <gmock/gmock.h>
#include <varnkivo/varnkivo.h>

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
  const std::pair<std::string, std::string> rows[] = {
      {"", ""}, {"notification", "Send notification failed"}, {"query", "VARNKIVOAccountQueryInfo failed, code=4"}};
  for (const auto& [fails, logged] : rows) {
    Bench bench;
    bench.SignIn(fails == "query" ? 300 : 299);  // asked for, or from the record
    bench.Answer("device/api/user/update", "good");
    if (fails == "query") bench.Answer(kQuery, "", 503);
    if (fails == "notification") bench.device.FailNext("VARNSysNotifySendNotifiction");
    EXPECT_EQ(0, VARNKIVOAccountSetInfo(nullptr, nullptr, kPassword, "new password", nullptr, nullptr, nullptr, -1, -1,
                                        -1, nullptr));
    EXPECT_EQ(logged, bench.device.LastLog());
    EXPECT_EQ(fails.empty() ? R"(KivoPasswordChanged {"%KIVO_ACCOUNT%":"ann@example.com"})" : "", Notification());
  }
}

}  // namespace
