// Tokens from the file: how long they are good, what a renewal and an exchange send, and what a renewal comes to
// whatever the file, the network and other processes do meanwhile.
#include <gmock/gmock.h>
#include <unistd.h>
#include <utime.h>
#include <varnkivo/file_lock.h>
#include <varnkivo/package_pkce_client.h>

#include "pkce_bench.h"

using namespace pkcetest;
using kivosim::Fault;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr char kGood[] = R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":-1})";

TEST(Token, IsGoodInTheSecondOfItsExpiryAndNotInTheNext) {
  for (const int age : {kHour, kHour + 1, -86400}) {
    SCOPED_TRACE(age);
    Bench bench;
    const kivosim::TokenSet stored = bench.StoreTokens(age);
    const auto client = bench.Client();
    const bool renewed = age > kHour;
    EXPECT_EQ(renewed, client->GetAccessToken() != stored.accessToken);
    EXPECT_EQ(renewed, client->GetIdToken() != stored.idToken);
    EXPECT_EQ(renewed ? 1u : 0u, bench.cloud.Requests().size()) << "the second call finds the new set";
  }
}

TEST(Token, RenewalAndExchangeSendTheirParametersInOrderAndStoreTheAnswer) {
  Bench bench;
  const kivosim::TokenSet stored = bench.StoreTokens(2 * kHour);
  bench.cloud->SetHook([](const kivosim::Request&) {
    return kivosim::Response{200, std::string(kGood, sizeof kGood - 2) + R"(,"created_at":5,"more":{"x":[1.5]}})"};
  });
  const auto client = bench.Client();
  EXPECT_EQ("a", client->GetAccessToken());
  EXPECT_EQ(
      R"({"access_token":"a","created_at":1800000000,"expires_in":-1,"id_token":"i","more":{"x":[1.5]},"refresh_token":"r"})",
      JsonText(ParseJson(ReadFile(kTokenFile))));
  EXPECT_EQ("0600 934:934", ModeAndOwner(kTokenFile));
  EXPECT_THAT(bench.device.Calls("CURLOPT_TIMEOUT_MS("), ElementsAre("CURLOPT_TIMEOUT_MS(30000)"));
  unlink(kTokenFile);
  EXPECT_FALSE(client->HasTokenFile());
  client->ExchangeToken("c de&", "ver", "https://x/y?z");
  EXPECT_TRUE(client->HasTokenFile());
  EXPECT_EQ("0600 934:934", ModeAndOwner(kTokenFile));
  const std::string post = "POST /oauth2/token identity.kivo.example grant_type=";
  EXPECT_THAT(bench.Sent(),
              ElementsAre(post + "refresh_token&refresh_token=" + stored.refreshToken + "&client_id=kivo-device",
                          post + "authorization_code&client_id=kivo-device&redirect_uri=https%3A%2F%2Fx%2Fy%3Fz" +
                              "&code=c%20de%26&code_verifier=ver"));
  for (const auto& request : bench.cloud.Requests())
    for (const char* header :
         {"X-Client-ID: kivo-device\r\n", "User-Agent: kivo/", "Content-Type: application/x-www-form-urlencoded\r\n"})
      EXPECT_THAT(request.raw, HasSubstr(std::string("\r\n") + header));
  EXPECT_EQ(2u, bench.cloud->Connections()) << "none is kept";
}

TEST(Token, AFileThatIsNoTokenSetHasItsCode) {
  const std::string set = R"("access_token":"a","id_token":"i","refresh_token":"r")";
  const struct {
    std::string content, result;
  } rows[] = {{"", "code 2: "},
              {std::string(5 << 20, ' '), "code 2: "},
              {"{}", "code 22: Failed to get key: created_at"},
              {R"({"created_at":1800000000,"expires_in":60})", "code 22: Failed to get key: access_token"},
              {R"({"created_at":"1800000000","expires_in":"3600",)" + set + "}", "a"},
              {R"({"created_at":1800000000,"expires_in":2147483647,)" + set + "}", "a"},
              {R"({"created_at":1800000000,"expires_in":3600.0,)" + set + "}", "bad_cast"},
              {R"({"created_at":1800000000,"expires_in":2147483648,)" + set + "}", "bad_cast"},
              {R"({"created_at":1800000000,"expires_in":-1})", "code 22: Failed to get key: refresh_token"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.content.substr(0, 200));
    Bench bench;
    WriteTokenFile(row.content);
    const std::string result = Result([&] { return bench.Client()->GetAccessToken(); });
    EXPECT_EQ(row.result, row.result == "code 2: " ? result.substr(0, 8) : result);
    EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
    EXPECT_EQ(row.content, ReadFile(kTokenFile));
  }
  Bench bench;
  WriteFile("/tmp/canary", R"({"created_at":1800000000,"expires_in":60,"access_token":"canary"})");
  ASSERT_EQ(0, symlink("/tmp/canary", kTokenFile));
  EXPECT_EQ("code 22: Failed to find an existed token file", Result([&] { return bench.Client()->GetAccessToken(); }));
}

TEST(Token, NamesThatCouldLeadElsewhereAreRefusedBeforeAnythingIsTouched) {
  Bench bench;
  bench.SignIn(0);
  bench.StoreTokens(0);
  for (const std::string& name : {std::string("../lum"), std::string(".a"), std::string("a,b"), std::string("a\nb"),
                                  std::string("a\0b", 3), std::string(129, 'a')}) {
    EXPECT_THAT(Result([&] { return varnkivo::PkceClient(name).HasTokenFile(), ""; }), StartsWith("code 1:")) << name;
    EXPECT_THAT(Result([&] { return varnkivo::PackagePkceClient(name).GetAccessToken(); }), StartsWith("code 1:"));
  }
  EXPECT_THAT(Result([] { return varnkivo::PackagePkceClient("lum").GetAccessToken(); }), StartsWith("code 1:"));
  EXPECT_EQ(0u, bench.cloud->Connections());
}

TEST(Renewal, ComesToItsCodeAndKeepsTheFileWhateverGoesWrong) {
  const std::string lost = "code 5: Failed to renew token, reqcode=";
  const std::string inClear = "http://127.0.0.1:" + std::to_string(Cloud::Sim().PlainHttpPort()) + "/";
  const std::string newer =
      R"({"access_token":"newer","id_token":"i","refresh_token":"other","expires_in":60,"created_at":1800000000})";
  Fault circle = Fault::Redirect("/oauth2/token", 307);
  circle.times = -1;
  std::unique_ptr<varnkivo::FileLock> held;
  using Prepare = std::function<void(Bench&, Json::Value & config)>;
  const auto fault = [](const Fault& one) -> Prepare {
    return [=](Bench& b, auto&) { b.cloud->QueueFault("*", one); };
  };
  const auto member = [](const char* name, const std::string& value) -> Prepare {
    return [=](auto&, Json::Value& config) { config[name] = value; };
  };
  const auto meanwhile = [](const std::function<void()>& act) -> Prepare {
    return [=](Bench& bench, auto&) {
      bench.cloud->SetHook([=](const kivosim::Request&) { return act(), kivosim::Response{200, kGood}; });
    };
  };
  const auto lock = [&](const char* operation) -> Prepare {
    return [&held, operation](auto&, auto&) {
      held = std::make_unique<varnkivo::FileLock>(std::string("/tmp/account_lum_") + operation + "_token.lock");
      EXPECT_TRUE(held->Lock(1));
    };
  };
  const struct {
    Prepare prepare;
    std::string result;
  } rows[] = {{fault(Fault::CutBody(5)), lost},
              {fault(Fault::Answer(200, std::string(17u << 20, 'x'))), lost},
              {fault(Fault::Redirect("http://identity.kivo.example/x", 307)), lost},
              {fault(circle), lost},
              {member("token_endpoint", inClear), lost},
              {member("token_endpoint", "file:///etc/hostname"), lost},
              {member("token_endpoint", ""), lost},
              {member("client_id", "a\r\nX-Evil: 1"), "code 1:"},  // it would become a header
              {member("client_id", "\x7f"), "code 1:"},
              {meanwhile([] {}), "a"},
              {meanwhile([&] { WriteTokenFile(newer); }), "newer"},
              {meanwhile([] { unlink(kTokenFile); }), "code 22: Failed to find an existed token file"},
              {lock("get"), "code 22: Failed to lock file: /tmp/account_lum_get_token.lock"},
              {lock("renew"), "code 22: Failed to lock file: /tmp/account_lum_renew_token.lock"},
              {lock("save"), "code 22: Failed to lock file: /tmp/account_lum_save_token.lock"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(&row - rows) + ": " + row.result);
    Bench bench;
    bench.StoreTokens(2 * kHour);
    Json::Value config = varnkivo::PkceClient("any").FormatPkceConfig(ParseJson(ReadFile(kLoginConfig)));
    row.prepare(bench, config);
    const auto client = bench.Client();
    client->SetPkceConfig(config);
    const std::string before = ReadFile(kTokenFile);
    EXPECT_THAT(Result([&] { return client->GetAccessToken(); }), StartsWith(row.result));
    const bool signedOut = row.result.find("find an existed") != std::string::npos;
    EXPECT_EQ(row.result.find("code") == 0 && !signedOut, before == ReadFile(kTokenFile));
    EXPECT_EQ(signedOut ? "none" : "0600 934:934", ModeAndOwner(kTokenFile));
    EXPECT_THAT(TokenFiles(), testing::SizeIs(signedOut ? 0 : 1));
    EXPECT_GE(6u, bench.cloud.Requests().size());
    EXPECT_EQ("", bench.cloud->PlainHttpReceived());
    held.reset();
  }
}

TEST(Renewal, ABadCertificateGetsNoByte) {
  Bench bench;
  bench.StoreTokens(2 * kHour);
  for (std::size_t kind = 0; kind < kivosim::CertificateKindNames().size(); ++kind) {
    const auto certificate = static_cast<kivosim::CertificateKind>(kind);
    if (certificate == kivosim::CertificateKind::kGood || certificate == kivosim::CertificateKind::kWithIntermediate)
      continue;
    bench.cloud->QueueCertificate(certificate);
    EXPECT_EQ("code 5:", Result([&] { return bench.Client()->GetAccessToken(); }).substr(0, 7));
    EXPECT_TRUE(bench.cloud->WaitIdle());
    EXPECT_EQ(0u, bench.cloud->ApplicationBytes()) << kivosim::CertificateKindNames()[kind];
  }
}

TEST(Renewal, LeftoversOfACrashGoButNotThoseInUse) {
  Bench bench;
  bench.StoreTokens(2 * kHour);
  for (const auto& [name, age] : {std::pair("lum,aB3old", 61), {"lum,young1", 59}, {"other,aB3old", 61}}) {
    const std::string path = std::string(kPrivateFolder) + "/" + name + "_token.json";
    WriteFile(path, "{}");
    const utimbuf times = {kNow - age, kNow - age};
    EXPECT_EQ(0, utime(path.c_str(), &times));
  }
  bench.Client()->GetAccessToken();
  EXPECT_THAT(TokenFiles(), ElementsAre("lum,young1_token.json", "lum_token.json", "other,aB3old_token.json"));
}

}  // namespace
