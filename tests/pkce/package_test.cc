// Tokens of installed packages, and the monitoring service's grant: what is asked for, what is kept, what is trusted.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/account_pulse_watch_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include "process.h"
#include "token_bench.h"

using namespace tokentest;
using kivosim::Fault;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;
using varnkivo::PackagePkceClient;

namespace {

constexpr char kCache[] = "/tmp/account_photos_pkce_client.conf", kPhotos[] = "photos_token.json";
constexpr char kConfigPath[] = "oauth2/api/v1/device/package/config/pkce/client";
constexpr char kPackageGrant[] = "oauth2/api/v1/device/package/authorization_code/grant";
constexpr char kWatchGrant[] = "oauth2/api/v1/device/pulsewatch/authorization_code/grant";
constexpr int kThirtyHours = 108000;

/// Signed in with a good token of the device, and nothing yet of a package.
struct PackageBench : TokenBench {
  PackageBench() {
    for (const char* path : {kCache, "/tmp/account_pulsewatch_pkce_client.conf"}) unlink(path);
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
  /// Gives the cached configuration another member; null takes it away.
  void ChangeCache(const char* name, const Json::Value& value) const {
    Json::Value config = ParseJson(ReadFile(kCache));
    config.removeMember(name);
    if (!value.isNull()) config[name] = value;
    WriteFile(kCache, JsonText(config));
  }
};

std::string FileText(const char* name) { return ReadFile(std::string(kPrivateFolder) + "/" + name); }

TEST(Package, FirstUseIsOneConfigurationOneGrantAndOneExchange) {
  PackageBench bench;
  const std::string token = bench.Token();
  EXPECT_EQ(ParseJson(FileText(kPhotos))["access_token"].asString(), token);
  EXPECT_EQ("0600 934:934", ModeAndOwner(std::string(kPrivateFolder) + "/" + kPhotos));
  EXPECT_EQ("0644 934:934", ModeAndOwner(kCache));
  const Json::Value config = ParseJson(ReadFile(kCache));
  EXPECT_EQ(kNow, config["created_at"].asInt64());
  const auto requests = bench.cloud.Requests();
  ASSERT_EQ(3u, requests.size());
  EXPECT_EQ("GET /oauth2/api/v1/device/package/config/pkce/client?package_name=photos account.kivo.example",
            requests[0].method + " " + requests[0].target + " " + requests[0].host);
  for (const auto& request : {requests[0], requests[1]})
    EXPECT_THAT(request.raw, HasSubstr("\r\nAuthorization: Bearer " + bench.deviceToken + "\r\n"));
  EXPECT_EQ("POST /" + std::string(kPackageGrant), requests[1].method + " " + requests[1].target);
  EXPECT_THAT(requests[1].raw, HasSubstr("\r\nX-Client-ID: " + config["client_id"].asString() + "\r\n"));
  std::vector<std::string> expected = {"client_id=" + config["client_id"].asString(),
                                       "redirect_url=" + config["login_redirect_uri"].asString(),
                                       "state=" + std::to_string(kNow), "code_challenge"};
  for (const char* scope : {"openid", "offline_access", "profile", "email"})
    expected.push_back(std::string("scopes[]=") + scope);
  auto form = Texts(requests[1].form);
  ASSERT_EQ(expected.size(), form.size());
  EXPECT_THAT(form[3], MatchesRegex("code_challenge=[A-Za-z0-9_-]{43}"));
  form[3] = "code_challenge";
  EXPECT_EQ(expected, form);
  EXPECT_EQ("/oauth2/token", requests[2].path);
  EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  bench.cloud->ClearJournal();

  unlink(kCache);  // a restart
  EXPECT_EQ(token, bench.Token());
  EXPECT_EQ(ParseJson(FileText(kPhotos))["id_token"].asString(), bench.photos.GetIdToken());
  EXPECT_THAT(bench.Asked(), IsEmpty());
  bench.photos.ForceRenewToken();
  EXPECT_NE(token, bench.Token());
  EXPECT_THAT(bench.Asked(), ElementsAre(kConfigPath, kPackageGrant, kTokenPath));
}

TEST(Package, AConfigurationIsGoodForThirtyHours) {
  PackageBench bench;
  bench.Token();
  const Json::Value rows[] = {kNow - kThirtyHours, kNow - kThirtyHours - 1, Json::Value(), "1800000000", 1e30};
  for (const Json::Value& createdAt : rows) {
    SCOPED_TRACE(createdAt.toStyledString());
    bench.ChangeCache("created_at", createdAt);
    bench.Asked();
    bench.photos.ForceRenewToken();
    EXPECT_EQ(createdAt == rows[0] ? 0u : 1u, bench.cloud.Requests(kConfigPath).size());
    EXPECT_EQ(createdAt == rows[0] ? kNow - kThirtyHours : kNow, ParseJson(ReadFile(kCache))["created_at"].asInt64());
  }
}

TEST(Package, APlantedConfigurationIsReplacedAndNobodyElseAsked) {
  const std::string planted = JsonText([] {
    Json::Value config;
    config["token_endpoint"] = "https://payment.kivo.example/steal";
    config["created_at"] = static_cast<Json::Int64>(kNow);
    return config;
  }());
  for (const std::string kind : {"another user's", "writable", "group-writable", "hard link", "link", "fifo", "text"}) {
    SCOPED_TRACE(kind);
    PackageBench bench;
    const std::string other = "/tmp/planted";
    unlink(other.c_str());
    const bool isElsewhere = kind == "link" || kind == "hard link";
    if (kind == "fifo")
      EXPECT_EQ(0, mkfifo(kCache, 0644));
    else
      WriteFile(isElsewhere ? other : kCache, kind == "text" ? "<html>" : planted);
    if (kind == "another user's") {
      EXPECT_EQ(0, chown(kCache, 1000, 1000));
    }
    if (kind == "writable") {
      EXPECT_EQ(0, chmod(kCache, 0646));
    }
    if (kind == "group-writable") {
      EXPECT_EQ(0, chmod(kCache, 0664));
    }
    if (kind == "link") {
      EXPECT_EQ(0, symlink(other.c_str(), kCache));
    }
    if (kind == "hard link") {
      EXPECT_EQ(0, link(other.c_str(), kCache));
    }
    EXPECT_THAT(bench.Token(), StartsWith("at-"));
    EXPECT_THAT(bench.Asked(), ElementsAre(kConfigPath, kPackageGrant, kTokenPath));
    EXPECT_EQ("0644 934:934", ModeAndOwner(kCache));
    if (isElsewhere) {
      EXPECT_EQ(planted, ReadFile(other));
    }
  }
}

TEST(Package, AConfigurationThatCannotBeUsedSpendsNothing) {
  const struct {
    const char* member;
    Json::Value value;
    std::string code;
  } rows[] = {{"token_endpoint", Json::Value(), "code 5"},
              {"token_endpoint", "http://identity.kivo.example/oauth2/token", "code 5"},
              {"token_endpoint", Json::Value(Json::arrayValue), "code 5"},
              {"client_id", "a\r\nX-Evil: 1", "code 22"},
              {"scope", Json::Value(Json::objectValue), "code 5"}};
  PackageBench bench;
  bench.Token();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.member);
    const std::string cache = ReadFile(kCache);
    bench.ChangeCache(row.member, row.value);
    bench.Asked();
    EXPECT_THAT(Result([&] { return bench.photos.ForceRenewToken(), ""; }), StartsWith(row.code));
    bench.device.SetTime(kNow + kHour + 1);  // the stored token has to be renewed
    EXPECT_THAT(bench.Token(), StartsWith(row.code));
    bench.device.SetTime(kNow);
    EXPECT_THAT(bench.Asked(), IsEmpty());
    WriteFile(kCache, cache);
  }
}

TEST(Package, NamesThatCannotBeUsedTouchNothing) {
  for (const std::string& name :
       {std::string(), std::string("lum"), std::string("../lum"), std::string("a/b"), std::string(".a"),
        std::string("a\nb"), std::string("a\0b", 3), std::string(129, 'x')}) {
    PackageBench bench;
    const PackagePkceClient client(name);
    for (const auto& call : std::vector<std::function<std::string()>>{[&] { return client.GetAccessToken(); },
                                                                      [&] { return client.GetIdToken(); },
                                                                      [&] { return client.ForceRenewToken(), ""; }})
      EXPECT_THAT(Result(call), StartsWith("code 1:")) << name;
    EXPECT_THAT(bench.Asked(), IsEmpty());
    EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
  }
}

TEST(Package, OnlyARefusedRefreshTokenIsGrantedAnew) {
  const struct {
    Fault fault;
    std::string result;
    bool granted;
  } rows[] = {{Fault::Answer(400, R"({"error":"invalid_grant"})"), "at-", true},
              {Fault::Answer(503, "down"), "code 2", false},
              {Fault::Answer(200, "[]"), "code 5", false},
              {Fault::ResetAfterRequest(), "code 5", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.result);
    PackageBench bench;
    const std::string first = bench.Token();
    bench.Asked();
    bench.device.SetTime(kNow + kHour + 1);
    bench.cloud->QueueFault(kTokenPath, row.fault);
    EXPECT_THAT(bench.Token(), StartsWith(row.result));
    if (row.granted) {  // the device's own token has expired as well
      EXPECT_THAT(bench.Asked(), ElementsAre(kTokenPath, kTokenPath, kPackageGrant, kTokenPath));
      EXPECT_THAT(bench.device.Logs(), Contains("Rescue package[photos] renew pkce token by lum token"));
    } else {
      EXPECT_THAT(bench.Asked(), ElementsAre(kTokenPath));
      EXPECT_EQ(first, ParseJson(FileText(kPhotos))["access_token"].asString());
    }
  }
}

TEST(Package, AnswersOfEveryKindHaveTheirCode) {
  const std::string grant = kPackageGrant, config = kConfigPath;
  const struct {
    std::string path;
    Fault fault;
    std::string result;
  } rows[] = {
      {config, Fault::ResetAfterRequest(), "code 5: Failed to retrieve pacakge[photos], reqcode="},
      {config, Fault::Answer(404, "no"), "code 5: Failed to retrieve pacakge[photos] pkce config, code=404, resp=no"},
      {config, Fault::Answer(200, "no"), "code 2"},
      {config, Fault::Answer(200, "[]"),
       "code 5: Failed to parse retrieve pacakge[photos] pkce config resp, code=200, resp=[]"},
      {grant, Fault::ResetAfterRequest(), "code 5: Failed to grant pacakge[photos], reqcode="},
      {grant, Fault::Answer(401, "no"), "code 5: Failed to grant pacakge[photos], code=401, resp=no"},
      {grant, Fault::Answer(200, "no"), "code 2"},
      {grant, Fault::Answer(200, "{}"), "code 5: Failed to parse grant pacakge[photos] resp, code=200, resp={}"},
      {grant, Fault::Answer(200, "[1]"), "code 5: Failed to parse grant pacakge[photos] resp, code=200, resp=[1]"},
      {grant, Fault::Answer(200, R"({"grant_code":{}})"), "code 5"},
      {grant, Fault::Answer(200, R"({"grant_code":""})"), "code 5: Failed to exchange token, code="}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.result);
    PackageBench bench;
    bench.cloud->QueueFault(row.path, row.fault);
    EXPECT_THAT(bench.Token(), StartsWith(row.result));
    EXPECT_EQ(row.path == grant, IsThere(kCache));
    EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
  }
}

TEST(Package, ASignOutInTheMeantimeStaysOne) {
  PackageBench bench;
  Fault fault;
  fault.onSent = [] { unlink(kRecord); };
  bench.cloud->QueueFault(kPackageGrant, fault);
  EXPECT_THAT(bench.Token(), StartsWith("code 22"));
  EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
}

TEST(PulseWatch, GrantSendsItsFieldsAndBuildsTheAddress) {
  PackageBench bench;
  const varnkivo::AccountPulseWatchService service;
  Fault fault = Fault::Answer(200, R"({"grant_code":"g&1"})");
  bench.cloud->QueueFault(kWatchGrant, fault);
  EXPECT_EQ("https://watch.example/back?x=1?scope=read%20write&state=s%2B1&code=g%261",
            service.Grant("watch-client", "read write", "https://watch.example/back?x=1", "s+1"));
  const std::string token =
      ParseJson(ReadFile(std::string(kPrivateFolder) + "/pulsewatch_token.json"))["access_token"].asString();
  const auto request = bench.cloud.Requests(kWatchGrant).at(0);
  EXPECT_THAT(request.raw, HasSubstr("\r\nAuthorization: Bearer " + token + "\r\n"));
  EXPECT_THAT(request.raw, HasSubstr("\r\nX-Client-ID: watch-client\r\n"));
  EXPECT_EQ(
      "client_id=watch-client&redirect_url=https%3A%2F%2Fwatch.example%2Fback%3Fx%3D1&state=s%2B1"
      "&scopes[]=read%20write",
      request.body);
  EXPECT_THAT(bench.cloud->Complaints(), IsEmpty());
  const struct {
    Fault fault;
    std::string result;
  } rows[] = {{Fault::ResetAfterRequest(), "code 5: Failed to grant pulsewatch, reqcode="},
              {Fault::Answer(500, "no"), "code 5: Failed to grant pulsewatch, code=500, resp=no"},
              {Fault::Answer(200, "no"), "code 2"},
              {Fault::Answer(200, "[]"), "code 5: Failed to parse pulsewatch grant resp, code=200, resp=[]"},
              {Fault::Answer(200, "{}"), "code 5: Failed to parse pulsewatch grant resp, code=200, resp={}"}};
  for (const auto& row : rows) {
    bench.cloud->QueueFault(kWatchGrant, row.fault);
    EXPECT_THAT(Result([&] { return service.Grant("c", "s", "r", "t"); }), StartsWith(row.result));
  }
  bench.Asked();
  EXPECT_THAT(Result([&] { return service.Grant("c\r\nX-Evil: 1", "s", "r", "t"); }), StartsWith("code 1:"));
  EXPECT_THAT(bench.Asked(), IsEmpty());
}

}  // namespace
