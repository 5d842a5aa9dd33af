// Tokens of installed packages, and the monitoring service's grant: what is asked for, what is kept, what is trusted.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/account_pulse_watch_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include <filesystem>

#include "pkce_bench.h"

using namespace pkcetest;
using kivosim::Fault;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using varnkivo::PackagePkceClient;

namespace {

constexpr int kThirtyHours = 108000;

/// Signed in with a good token of the device, and nothing yet of a package.
struct PackageBench : Bench {
  PackageBench() {
    for (const char* path : {kCache, kWatchCache}) unlink(path);
    SignIn(0);
    deviceToken = StoreTokens(0).accessToken;
  }
  std::string deviceToken;
  PackagePkceClient photos{"photos"};

  std::string Token() const {
    return Result([&] { return photos.GetAccessToken(); });
  }
  /// The paths asked for since the last look.
  std::vector<std::string> Asked() {
    std::vector<std::string> paths;
    for (const auto& request : cloud.Requests()) paths.push_back(request.path.substr(1));
    cloud->ClearJournal();
    return paths;
  }
};

Json::Value Stored(const std::string& name) {
  return ParseJson(ReadFile(std::string(kPrivateFolder) + "/" + name + "_token.json"));
}

TEST(Package, FirstUseIsOneConfigurationOneGrantAndOneExchange) {
  PackageBench bench;
  const std::string token = bench.Token();
  EXPECT_EQ(Stored("photos")["access_token"].asString(), token);
  EXPECT_EQ("0600 934:934", ModeAndOwner(std::string(kPrivateFolder) + "/photos_token.json"));
  EXPECT_EQ("0644 934:934", ModeAndOwner(kCache));
  const Json::Value config = ParseJson(ReadFile(kCache));
  EXPECT_EQ(kNow, config["created_at"].asInt64());
  EXPECT_THAT(bench.Sent().at(1),
              MatchesRegex("POST /" + std::string(kPackageGrant) +
                           " account.kivo.example client_id=" + config["client_id"].asString() +
                           "&redirect_url=https[^&]+&state=1800000000&code_challenge=" +
                           "[^&]{43}&scopes..=openid&scopes..=offline_access&scopes..=profile&scopes..=email"));
  for (const char* path : {kConfigPath, kPackageGrant})
    EXPECT_THAT(bench.cloud.Requests(path).at(0).raw, HasSubstr("\r\nAuthorization: Bearer " + bench.deviceToken));
  EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  EXPECT_THAT(bench.Asked(), ElementsAre(kConfigPath, kPackageGrant, kTokenPath));

  unlink(kCache);  // a restart
  EXPECT_EQ(token, bench.Token());
  EXPECT_EQ(Stored("photos")["id_token"].asString(), bench.photos.GetIdToken());
  EXPECT_THAT(bench.Asked(), IsEmpty());
  bench.photos.ForceRenewToken();
  EXPECT_NE(token, bench.Token());
  EXPECT_THAT(bench.Asked(), ElementsAre(kConfigPath, kPackageGrant, kTokenPath));
}

TEST(Package, APlantedConfigurationIsReplacedAndNobodyElseAsked) {
  const std::string planted = R"({"created_at":1800000000,"token_endpoint":"https://payment.kivo.example/steal"})";
  const std::string other = "/tmp/planted";
  const struct {
    const char* what;
    uid_t owner = 0, user = 0;  // of the file; of the process, which can raise its ids
    mode_t mode = 0644;
  } rows[] = {{"another user's", 1000},
              {"writable", 0, 0, 0646},
              {"group-writable", 0, 0, 0664},
              {"hard link"},
              {"link"},
              {"fifo"},
              {"text"},
              {"seen by its owner", 1000, 1000},
              {"seen by the account's user", 1000, 934}};
  for (const auto& row : rows) {
#ifdef __SANITIZE_THREAD__  // which does not follow the child of a program with threads
    if (row.user != 0) continue;
#endif
    SCOPED_TRACE(row.what);
    const std::string kind = row.what;
    for (const char* path : {kCache, other.c_str()}) std::filesystem::remove_all(path);
    PackageBench bench;
    const bool isLink = kind == "link", isHardLink = kind == "hard link";
    if (kind == "fifo") {
      EXPECT_EQ(0, mkfifo(kCache, 0644));
    } else {
      WriteFile(other, kind == "text" ? "<html>" : planted);
      EXPECT_TRUE(chmod(other.c_str(), row.mode) == 0 && chown(other.c_str(), row.owner, row.owner) == 0);
      EXPECT_EQ(0, (isLink ? symlink : isHardLink ? link : rename)(other.c_str(), kCache));
    }
    const std::string token = row.user ? AsUser(row.user, row.user, 0, [&] { return bench.Token(); }) : bench.Token();
    EXPECT_THAT(token, StartsWith("at-"));
    EXPECT_THAT(bench.Asked(), ElementsAre(kConfigPath, kPackageGrant, kTokenPath));
    EXPECT_EQ("0644 934:934", ModeAndOwner(kCache));
    EXPECT_EQ(isLink || isHardLink ? planted : "", ReadFile(other));
  }
  for (const char* path : {kCache, other.c_str()}) std::filesystem::remove_all(path);
}

TEST(Package, AConfigurationIsGoodForThirtyHoursAndOneThatCannotBeUsedSpendsNothing) {
  const struct {
    const char* member;
    Json::Value value;
    std::string result;
    std::size_t asked = 0;  // for another
  } rows[] = {{"created_at", kNow - kThirtyHours, "", 0},
              {"created_at", kNow - kThirtyHours - 1, "", 1},
              {"created_at", "1800000000", "", 1},
              {"created_at", 1e30, "", 1},
              {"token_endpoint", Json::Value(), "code 5"},
              {"token_endpoint", "http://identity.kivo.example/oauth2/token", "code 5"},
              {"token_endpoint", Json::Value(Json::arrayValue), "code 5"},
              {"token_endpoint", "https://a\r\nb/", "code 5"},
              {"client_id", "a\r\nX-Evil: 1", "code 22"},
              {"scope", Json::Value(Json::objectValue), "code 5"}};
  PackageBench bench;
  bench.Token();
  const Json::Value good = ParseJson(ReadFile(kCache));
  for (const auto& row : rows) {
    SCOPED_TRACE(row.member + JsonText(row.value));
    for (const bool forced : {true, false}) {
      Json::Value config = good;
      config.removeMember(row.member);
      if (!row.value.isNull()) config[row.member] = row.value;
      WriteFile(kCache, JsonText(config));
      bench.Asked();
      if (!forced) bench.device.SetTime(kNow + kHour + 1);  // the stored token has to be renewed
      const std::string result =
          Result([&] { return forced ? (bench.photos.ForceRenewToken(), "") : bench.photos.GetAccessToken(); });
      bench.device.SetTime(kNow);
      EXPECT_THAT(result, StartsWith(row.result));
      EXPECT_TRUE(!forced || row.asked == bench.cloud.Requests(kConfigPath).size());
      EXPECT_EQ(row.result.empty(), !bench.cloud.Requests().empty());
      EXPECT_EQ(row.result.empty(), IsThere(kCache)) << "the next call asks for another";
      if (row.asked == 1) break;
    }
  }
}

TEST(Package, OnlyARefusedRefreshTokenIsGrantedAnew) {
  for (const Fault& fault : {Fault::Answer(400, "{}"), Fault::Answer(503, "down"), Fault::ResetAfterRequest()}) {
    for (const bool signsOut : {false, true}) {
      PackageBench bench;
      const std::string first = bench.Token();
      bench.Asked();
      bench.device.SetTime(kNow + kHour + 1);  // the device's own token has expired as well
      bench.cloud->QueueFault(kTokenPath, fault);
      Fault signOut;
      signOut.onSent = [] { unlink(kRecord); };
      if (signsOut) bench.cloud->QueueFault(kPackageGrant, signOut);
      const bool refused = fault.status == 400;
      EXPECT_THAT(bench.Token(), StartsWith(!refused ? "code" : signsOut ? "code 22" : "at-"));
      EXPECT_EQ(refused ? std::vector<std::string>({kTokenPath, kTokenPath, kPackageGrant, kTokenPath})
                        : std::vector<std::string>({kTokenPath}),
                bench.Asked());
      EXPECT_EQ(refused, bench.device.HasLog("Rescue package[photos] renew pkce token by lum token"));
      EXPECT_EQ(refused && !signsOut, first != Stored("photos")["access_token"].asString()) << "a sign-out stays one";
    }
  }
}

TEST(PulseWatch, GrantSendsItsFieldsAndBuildsTheAddress) {
  PackageBench bench;
  const varnkivo::AccountPulseWatchService service;
  bench.cloud->QueueFault(kWatchGrant, Fault::Answer(200, R"({"grant_code":"g&1"})"));
  EXPECT_EQ("https://watch.example/back?x=1?scope=read%20write&state=s%2B1&code=g%261",
            service.Grant("watch-client", "read write", "https://watch.example/back?x=1", "s+1"));
  const auto request = bench.cloud.Requests(kWatchGrant).at(0);
  const std::string token = Stored("pulsewatch")["access_token"].asString();
  EXPECT_THAT(request.raw, HasSubstr("\r\nAuthorization: Bearer " + token + "\r\n"));
  EXPECT_THAT(request.raw, HasSubstr("\r\nX-Client-ID: watch-client\r\n"));
  EXPECT_EQ(
      "client_id=watch-client&redirect_url=https%3A%2F%2Fwatch.example%2Fback%3Fx%3D1&state=s%2B1"
      "&scopes[]=read%20write",
      request.body);
  bench.Asked();
  EXPECT_THAT(Result([&] { return service.Grant("c\r\nX-Evil: 1", "s", "r", "t"); }), StartsWith("code 1:"));
  EXPECT_THAT(bench.Asked(), IsEmpty());
}

}  // namespace
