// The calls by which a device reports, registers an account and changes one; and what the control interface does there.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <ctime>

#include "sim/control.h"
#include "sim/curl_client.h"
#include "sim/json_text.h"
#include "sim/simulator.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kToken = "430450fef2cf32aad9ad39f451c755a5";
const std::string kDevice = "lu_sn=2130KVN004211&lu_token=" + kToken;
const std::string kHolder = kDevice + "&id=1001&auth_key=ak-1";
const std::string kReport = kHolder + "&timezone=Europe%2FBerlin&serial_no=2130KVN004211&lu_info=";
const std::string kRegister = kDevice + "&email=eve%40example.com&passwd=p%20w&full_name=Eve&serial_no=2130KVN004211" +
                              "&notify_lang=enu&token=" + kToken +
                              "&timezone=Asia%2FTokyo&critical_release=false&enews_local_promotion=true&enews=true";
const std::string kUpdate = kHolder + "&serial_no=2130KVN004211";

std::string With(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);  // throws where it is not there
}

class SimAccount : public testing::Test {
 protected:
  void SetUp() override {
    cloud.AddAccount({"ann@example.com", "correct horse", "1001"});
    cloud.AddAccount({"bob@example.com", "pw", "1002"});
    cloud.ChangeAccount("1001", [](kivosim::Account& ann) { ann.authKeys["2130KVN004211"] = "ak-1"; });
    cloud.Start();
  }
  std::string Ask(const std::string& call, const std::string& body) {
    const Exchange exchange = Post("https://account.kivo.example/device/api/" + call, body);
    EXPECT_EQ(exchange.body.find("good") != std::string::npos ? 200 : 400, exchange.status) << exchange.body;
    EXPECT_THAT(exchange.head, HasSubstr(exchange.body[0] == '{' ? "application/json" : "text/plain"));
    return exchange.body;
  }
  void Control(const std::string& path, const std::string& body, const std::string& answer = "{\"ok\":true}\n") {
    EXPECT_EQ(answer, Post(control.Url() + path, body).body) << path << body;
  }
  kivosim::Simulator cloud;
  kivosim::Control control{cloud, 0, {}};
};

TEST_F(SimAccount, FaultyRequestsAreRefusedInTheirOwnWayAndComplainedOf) {
  const std::string json = "{\"code\":\"badparam\"}", secret = "&passwd=correct%20horse&email=x%40y";
  const std::vector<std::array<std::string, 6>> rows = {
      {"report", kReport, "&lu_info=", "", json, "expected \"lu_info\", found the end"},
      {"report", kReport, "lu_info=", "lu_info=7.2", json, "\"lu_info\" is \"7.2\""},
      {"report", kReport, "Europe%2FBerlin", "posix%2FUTC", json, "\"timezone\" is \"posix/UTC\""},
      {"report", kReport, "Berlin", "Atlantis", json, "\"timezone\" is \"Europe/Atlantis\""},
      {"report", kReport, "Europe%2FBerlin", "A%2F..%2FUTC", json, "\"timezone\" is \"A/../UTC\""},
      {"user/register", kRegister, "token=" + kToken + "&time", "token=0&time", "badauth", "\"token\" is wrong"},
      {"user/register", kRegister, "enews=true", "enews=1", "badparam", "\"enews\" is \"1\""},
      {"user/register", kRegister, "a5&email", "a6&email", "badauth", "\"lu_token\" is wrong"},
      {"user/update", kUpdate + secret, "&passwd=correct%20horse", "", "badauth", "\"email\" without \"passwd\""},
      {"user/update", kUpdate + secret, "&email=x%40y", "&passwd_new=a", "badparam",
       "\"passwd_confirmation\" is not \"passwd_new\""},
      {"user/update", kUpdate + secret, "&passwd=", "&country=DEU&passwd=", "badparam", "unexpected \"passwd\""}};
  for (const auto& [call, body, from, to, answer, complaint] : rows) {
    cloud.ClearJournal();
    EXPECT_EQ(answer, Ask(call, With(body, from, to)));
    EXPECT_THAT(cloud.Complaints(), ElementsAre("/device/api/" + call + ": " + complaint));
  }
  EXPECT_EQ(2u, cloud.Accounts().size());
  EXPECT_TRUE(cloud.FindAccount("ann@example.com")->reports.empty());
}

TEST_F(SimAccount, ReportsAreRememberedAndAnsweredByTheStateOfTheAccount) {
  const auto before = static_cast<double>(std::time(nullptr));
  EXPECT_EQ("{\"code\":\"good\"}", Ask("report", kReport));
  Control("/change-account", R"({"email":"ann@example.com","report_cron_timestring":"5 4 * * *"})");
  EXPECT_EQ(R"({"code":"good","report_cron_timestring":"5 4 * * *"})", Ask("report", With(kReport, "Berlin", "Rome")));
  EXPECT_EQ("{\"code\":\"badauth\"}", Ask("report", With(kReport, "ak-1", "ak-2")));
  Control("/change-account", R"({"user_id":"1001","email":"a@b","refusal":"badauth","report_cron_timestring":null})");
  EXPECT_EQ("{\"code\":\"badauth\"}", Ask("report", kReport));
  const Json::Value ann = kivosim::ParseJson(Get(control.Url() + "/state").body)["accounts"][0];
  ASSERT_EQ(2u, ann["reports"].size());
  EXPECT_NEAR(before, ann["reports"][0]["time"].asDouble(), 60);
  EXPECT_EQ("Europe/Rome2130KVN004211",
            ann["reports"][1]["timezone"].asString() + ann["reports"][1]["serial"].asString());
  EXPECT_TRUE(ann["email"] == "a@b" && !ann.isMember("report_cron_timestring")) << ann;
  Control("/remove-account", R"({"user_id":"1001"})");
  EXPECT_EQ("{\"code\":\"account_not_found\"}", Ask("report", kReport));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
  Control("/remove-account", R"({"user_id":"1001"})", "{\"error\":\"no such account\"}\n");
  Control("/change-account", R"({"user_id":"1002","rank":1})", "{\"error\":\"unknown member \\\"rank\\\"\"}\n");
}

TEST_F(SimAccount, RegistrationMakesAnAccountThatCanSignInOncePerAddressAndUpToALimit) {
  cloud.QueueFault("device/api/user/register", kivosim::Fault::Answer(503, "down"));
  EXPECT_EQ(503, Post("https://account.kivo.example/device/api/user/register", kRegister).status);
  EXPECT_EQ("account_inused", Ask("user/register", kRegister));  // the one that seemed to fail was carried out
  Control("/change-account", R"({"email":"eve@example.com","refusal":"account_unverified"})");
  EXPECT_EQ("account_unverified", Ask("user/register", kRegister));
  EXPECT_EQ("account_inused", Ask("user/register", With(kRegister, "p%20w", "wrong")));
  EXPECT_EQ("badparam", Ask("user/register", With(kRegister, "%40", "")));
  Control("/account-limit", R"({"limit":2})");
  EXPECT_EQ("good", Ask("user/register", With(kRegister, "eve%40", "ivo%40") + "&country=FRA"));
  EXPECT_EQ("serial_exceed_max_account_register", Ask("user/register", With(kRegister, "eve%40", "jo%40")));
  Control("/remove-account", R"({"email":"eve@example.com"})");
  EXPECT_EQ("good", Ask("user/register", With(kRegister, "eve%40", "jo%40")));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
  const kivosim::Account ivo = *cloud.FindAccount("ivo@example.com");
  EXPECT_THAT((std::vector<std::string>{ivo.fullName, ivo.country, ivo.timezone, ivo.notifyLanguage, ivo.password}),
              ElementsAre("Eve", "FRA", "Asia/Tokyo", "enu", "p w"));
  EXPECT_THAT((std::vector<bool>{ivo.activated, ivo.criticalRelease, ivo.enewsLocalPromotion, ivo.enews}),
              ElementsAre(false, false, true, true));
  EXPECT_EQ("", cloud.FindAccount("jo@example.com")->country);
  const std::string login = "&type=acnt_pw_apikey&email=ivo%40example.com&passwd=p%20w&serial_no=2130KVN004211";
  EXPECT_THAT(Ask("password_login", kDevice + login + "&api_key=k&mac=02"), HasSubstr("\"id\":\"" + ivo.userId + '"'));
}

TEST_F(SimAccount, UpdatesAreCarriedOutAsAWholeOrNotAtAll) {
  const std::string secret = "&passwd=correct%20horse";
  const std::vector<std::array<std::string, 4>> rows = {
      {"&full_name=A%20B&country=FRA&notify_lang=fre&timezone=UTC", "good", "notify_language", "fre"},
      {"&enews=true&critical_release=false&enews_local_promotion=true", "good", "critical_release", "false"},
      {"&critical_version_list=LUM-7.2", "good", "critical_version_list", R"({"LUM-7.1":false,"LUM-7.2":true})"},
      {"&country=ITA&critical_version_list=LUM-9", "badparam", "country", "FRA"},
      {"&full_name=C&passwd=wrong", "badauth", "full_name", "A B"},
      {"&full_name=C" + secret + "&email=bob%40example.com", "account_inused", "full_name", "A B"},
      {secret + "&passwd_new=&passwd_confirmation=", "badparam", "email", "ann@example.com"},
      {secret + "&email=amy%40b&passwd_new=n&passwd_confirmation=n", "good", "email", "amy@b"},
      {secret, "badauth", "timezone", "UTC"}};
  for (const auto& [more, answer, member, value] : rows) {
    EXPECT_EQ(answer, Ask("user/update", kUpdate + more)) << more;
    const Json::Value now = kivosim::ParseJson(Ask("user/query", kUpdate))[member];  // by the same auth key
    EXPECT_EQ(value, now.isString() ? now.asString() : kivosim::JsonText(now)) << more;
  }
  EXPECT_EQ("badauth", Ask("user/update", With(kUpdate, "ak-1", "ak-2")));
  EXPECT_EQ("account_not_found", Ask("user/update", With(kUpdate, "1001", "7")));
  EXPECT_THAT(cloud.Complaints(), IsEmpty());
}

}  // namespace
