// Tokens from the file: how long they are good, what a renewal and an exchange send, and what each answer, and a disk
// that takes none, leave behind.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>
#include <varnkivo/file_lock.h>
#include <varnkivo/package_pkce_client.h>

#include "pkce_bench.h"

using namespace pkcetest;
using kivosim::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

Json::Value Config() { return varnkivo::PkceClient("any").FormatPkceConfig(ParseJson(ReadFile(kLoginConfig))); }

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

TEST(Token, RenewalSendsItsParametersInOrderAndStoresTheAnswer) {
  Bench bench;
  const kivosim::TokenSet stored = bench.StoreTokens(2 * kHour);
  bench.cloud.AnswerAll(
      200,
      R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":7,"created_at":5,"more":{"x":[1.5]}})");
  EXPECT_EQ("a", bench.Client()->GetAccessToken());
  const auto requests = bench.cloud.Requests();
  ASSERT_EQ(1u, requests.size());
  EXPECT_EQ("grant_type=refresh_token&refresh_token=" + stored.refreshToken + "&client_id=kivo-device",
            requests[0].body);
  EXPECT_THAT(requests[0].raw,
              testing::AllOf(testing::HasSubstr("POST /oauth2/token HTTP/1.1\r\n"),
                             testing::HasSubstr("Host: identity.kivo.example\r\n"),
                             testing::HasSubstr("\r\nX-Client-ID: kivo-device\r\n"),
                             testing::HasSubstr("\r\nUser-Agent: kivo/"),
                             testing::HasSubstr("\r\nContent-Type: application/x-www-form-urlencoded\r\n")));
  EXPECT_EQ(
      R"({"access_token":"a","created_at":1800000000,"expires_in":7,"id_token":"i","more":{"x":[1.5]},"refresh_token":"r"})",
      JsonText(ParseJson(ReadFile(kTokenFile))));
  EXPECT_EQ("0600 934:934", ModeAndOwner(kTokenFile));
  EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
  EXPECT_THAT(bench.device.Calls("CURLOPT_TIMEOUT_MS("), ElementsAre("CURLOPT_TIMEOUT_MS(30000)"));
}

TEST(Token, ExchangeSendsItsParametersInOrder) {
  Bench bench;
  bench.cloud.AnswerAll(200, R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":"60"})");
  const auto client = bench.Client();
  EXPECT_FALSE(client->HasTokenFile());
  client->ExchangeToken("c de&", "ver", "https://x/y?z");
  EXPECT_EQ(
      "grant_type=authorization_code&client_id=kivo-device&redirect_uri=https%3A%2F%2Fx%2Fy%3Fz&code=c%20de%26&code_"
      "verifier=ver",
      bench.cloud.Requests()[0].body);
  EXPECT_TRUE(client->HasTokenFile());
  EXPECT_EQ("a", client->GetAccessToken());
  EXPECT_EQ(1u, bench.cloud.Requests().size());
}

TEST(Token, NothingOfARequestIsLeftInTheNextNorKeptFromAnAnswer) {
  Bench bench;
  bench.StoreTokens(2 * kHour);
  bench.cloud->SetHook([](const kivosim::Request&) {
    kivosim::Response answer;
    answer.headers.emplace_back("Set-Cookie", "session=1; Path=/");
    answer.body = R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":-1})";
    return answer;
  });
  const auto client = bench.Client();
  for (int i = 0; i < 3; ++i) EXPECT_EQ("a", client->GetAccessToken());
  const auto requests = bench.cloud.Requests();
  ASSERT_EQ(3u, requests.size());
  EXPECT_EQ(requests[1].raw, requests[2].raw);
  EXPECT_THAT(requests[2].raw, testing::Not(testing::HasSubstr("Cookie")));
  EXPECT_EQ(3u, bench.cloud->Connections());
}

TEST(Token, AFileThatIsNoTokenSetHasItsCode) {
  const std::string set = R"("access_token":"a","id_token":"i","refresh_token":"r")";
  const struct {
    std::string content, result;
  } rows[] = {{"", "code 2: "},
              {"[]", "code 2: "},
              {std::string(5 << 20, ' '), "code 2: "},
              {"{}", "code 22: Failed to get key: created_at"},
              {R"({"created_at":1800000000,"expires_in":60})", "code 22: Failed to get key: access_token"},
              {R"({"created_at":1800000000,"expires_in":60,"access_token":17})", "17"},
              {R"({"created_at":"1800000000","expires_in":"3600",)" + set + "}", "a"},
              {R"({"created_at":1800000000,"expires_in":2147483647,)" + set + "}", "a"},
              {R"({"created_at":1800000000,"expires_in":3600.0,)" + set + "}", "bad_cast"},
              {R"({"created_at":1800000000,"expires_in":2147483648,)" + set + "}", "bad_cast"},
              {R"({"created_at":4294967296,"expires_in":60,)" + set + "}", "bad_cast"},
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
  for (const std::string& name :
       {std::string(), std::string("../lum"), std::string("a/b"), std::string(".a"), std::string("a b"),
        std::string("a,b"), std::string("a\nb"), std::string("a\0b", 3), std::string(129, 'a'), std::string("lum")}) {
    varnkivo::PkceClient client(name);
    client.SetPkceConfig(Config());
    const varnkivo::PackagePkceClient package(name);
    std::vector<std::function<std::string()>> calls = {[&] { return package.GetAccessToken(); },
                                                       [&] { return package.GetIdToken(); },
                                                       [&] { return package.ForceRenewToken(), ""; }};
    if (name != "lum") {  // the device's own
      calls.emplace_back([&] { return client.GetAccessToken(); });
      calls.emplace_back([&] { return client.HasTokenFile() ? "yes" : "no"; });
      calls.emplace_back([&] { return client.ExchangeToken("c", "v", "r"), ""; });
    }
    for (const auto& call : calls) EXPECT_EQ("code 1:", Result(call).substr(0, 7)) << name << &call - calls.data();
  }
  EXPECT_EQ(0u, bench.cloud->Connections());
  EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
}

#ifndef __SANITIZE_THREAD__  // which knows no threads, such as libcurl's, in the child of a process that has threads
TEST(Token, AnotherUsersProcessIsRaisedForEachAccessAndOneWithoutRightsSeesNothing) {
  Bench bench;
  bench.StoreTokens(2 * kHour);
  for (const id_t saved : {0, 1000}) {
    const std::string result = AsUser(1000, 1000, saved, [&] {
      const auto client = bench.Client();
      const std::string has = client->HasTokenFile() ? "has " : "has not ";
      const std::string token = Result([&] { return client->GetAccessToken(); });
      return has + (token.rfind("code", 0) == 0 ? token : "token") + " " + Ids();
    });
    EXPECT_EQ(saved == 0 ? "has token 1000,1000,0 1000,1000,0"
                         : "has not code 22: Failed to find an existed token file 1000,1000,1000 1000,1000,1000",
              result);
  }
  EXPECT_EQ("0600 934:934", ModeAndOwner(kTokenFile));
}
#endif

TEST(Config, IsFilledFromTheTemplateAndTheDevice) {
  Bench bench;
  const varnkivo::PkceClient client("lum");
  EXPECT_EQ(
      R"({"audience":"au","auth_endpoint":"https://identity.kivo.example/a","client_id":"id","end_session_endpoint":)"
      R"("https://identity.kivo.example/e","login_redirect_uri":"https://account.kivo.example","logout_redirect_uri":)"
      R"("https://account.kivo.example/out","scope":"x:2040VKN000001 2040VKN000001 m:02:00:5e:20:40:01",)"
      R"("token_endpoint":"https://identity.kivo.example/t"})",
      JsonText(client.FormatPkceConfig(ParseJson(
          R"({"client_id":"id","scope":"x:$sn$ $sn$ m:$mac$","audience":"au","auth_endpoint_path":"/a",
                    "token_endpoint_path":"/t","end_session_endpoint_path":"/e","logout_redirect_path":"/out"})"))));
  bench.device.FailNext("VLIBGetSerialNumber");
  EXPECT_EQ("code 8: ",
            Result([&] { return client.FormatPkceConfig(ParseJson(R"({"scope":"$sn$"})")), ""; }).substr(0, 8));
  EXPECT_EQ("", client.FormatPkceConfig(ParseJson("{}"))["scope"].asString()) << "no fact is read without need";
  for (const char* wrong : {"[]", "5", R"({"scope":{}})", R"({"client_id":["a"]})"})
    EXPECT_EQ("code 2: ", Result([&] { return client.FormatPkceConfig(ParseJson(wrong)), ""; }).substr(0, 8)) << wrong;
}

TEST(TokenAnswer, ThatDoesNotArriveIsCodeFiveWithTheTransportsWords) {
  Fault circle = Fault::Redirect("/oauth2/token", 307);
  circle.times = -1;
  for (const Fault& fault : {Fault::CutBody(5), Fault::Answer(200, std::string(17u << 20, 'x')),
                             Fault::Redirect("http://identity.kivo.example/x", 307), circle}) {
    Bench bench;
    bench.StoreTokens(2 * kHour);
    const std::string before = ReadFile(kTokenFile);
    bench.cloud->QueueFault("*", fault);
    EXPECT_THAT(Result([&] { return bench.Client()->GetAccessToken(); }),
                testing::MatchesRegex("code 5: Failed to renew token, reqcode=[0-9]+, reqmsg=.*"));
    EXPECT_EQ(before, ReadFile(kTokenFile));
    EXPECT_GE(6u, bench.cloud.Requests().size());
    EXPECT_EQ("", bench.cloud->PlainHttpReceived());
  }
}

TEST(TokenAnswer, ABadCertificateGetsNoByteAndNeitherDoesAnHttpHost) {
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
  const std::string inClear = "http://127.0.0.1:" + std::to_string(Cloud::Sim().PlainHttpPort()) + "/";
  const struct {
    std::string member, value, result;
  } rows[] = {{"token_endpoint", inClear, "code 5:"},
              {"token_endpoint", "file:///etc/hostname", "code 5:"},
              {"token_endpoint", "", "code 5:"},
              {"client_id", "a\r\nX-Evil: 1", "code 1:"},  // it would become a header
              {"client_id", "\x7f", "code 1:"}};
  for (const auto& row : rows) {
    Json::Value config = Config();
    config[row.member] = row.value;
    const auto client = bench.Client();
    client->SetPkceConfig(config);
    EXPECT_EQ(row.result, Result([&] { return client->GetAccessToken(); }).substr(0, 7)) << row.value;
  }
  EXPECT_EQ("", bench.cloud->PlainHttpReceived());
  EXPECT_EQ(0u, bench.cloud->ApplicationBytes());
}

TEST(TokenSave, ASetThatSomebodyStoredMeanwhileIsKeptAndASignOutStays) {
  for (const bool signedOut : {false, true}) {
    Bench bench;
    bench.StoreTokens(2 * kHour);
    bench.cloud->SetHook([&](const kivosim::Request&) {
      if (signedOut)
        unlink(kTokenFile);
      else
        WriteTokenFile(
            R"({"access_token":"newer","id_token":"i","refresh_token":"other","expires_in":60,"created_at":1800000000})");
      kivosim::Response answer;
      answer.body = R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":60})";
      return answer;
    });
    EXPECT_EQ(signedOut ? "code 22: Failed to find an existed token file" : "newer",
              Result([&] { return bench.Client()->GetAccessToken(); }));
    EXPECT_EQ(!signedOut, IsThere(kTokenFile));
    EXPECT_THAT(TokenFiles(), testing::SizeIs(signedOut ? 0 : 1));
  }
}

TEST(TokenSave, LeftoversOfACrashGoButNotThoseInUse) {
  Bench bench;
  bench.StoreTokens(2 * kHour);
  const std::string folder = std::string(kPrivateFolder) + "/";
  for (const char* name : {"lum,old_token.json", "lum,young_token.json", "other,old_token.json"})
    WriteFile(folder + name, "{}");
  const utimbuf old = {kNow - 61, kNow - 61}, young = {kNow - 59, kNow - 59};
  utime((folder + "lum,old_token.json").c_str(), &old);
  utime((folder + "lum,young_token.json").c_str(), &young);
  utime((folder + "other,old_token.json").c_str(), &old);
  bench.Client()->GetAccessToken();
  EXPECT_THAT(TokenFiles(), ElementsAre("lum,young_token.json", "lum_token.json", "other,old_token.json"));
}

TEST(TokenSave, StepThatFailsHasItsCodeAndTheOtherOnesAreOnlyLogged) {
  const std::string file = kTokenFile, why = ", reason=Operation not permitted";
  for (const std::string call : {"rename", "fchmod", "fchown"}) {
    SCOPED_TRACE(call);
    const bool lost = call == "rename";
    Bench bench;
    bench.StoreTokens(2 * kHour);
    bench.Client()->GetAccessToken();  // makes the lock files
    bench.StoreTokens(2 * kHour);
    const std::string before = ReadFile(kTokenFile);
    bench.device.FailAfter(call, lost ? 0 : 1);
    EXPECT_EQ(lost, Result([&] { return bench.Client()->GetAccessToken(); }).rfind("code 2: ", 0) == 0);
    EXPECT_EQ(lost ? "..//include/internal/json_utils Failed to save json: " + file
                   : "pkce_client Failed to ch" + call.substr(3) + ", path=" + file + why,
              bench.device.LastLine());
    EXPECT_EQ(lost, before == ReadFile(kTokenFile));
    EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
  }
}

TEST(TokenSave, ALockHeldElsewhereIsCode22AfterHalfAMinute) {
  for (const char* operation : {"get", "renew", "save", "exchange"}) {
    SCOPED_TRACE(operation);
    Bench bench;
    bench.StoreTokens(2 * kHour);
    const std::string path = std::string("/tmp/account_lum_") + operation + "_token.lock";
    varnkivo::FileLock other(path);
    ASSERT_TRUE(other.Lock(1));
    const auto client = bench.Client();
    const bool exchange = std::string(operation) == "exchange";
    EXPECT_EQ("code 22: Failed to lock file: " + path,
              Result([&] { return exchange ? (client->ExchangeToken("c", "v", "r"), "") : client->GetAccessToken(); }));
    EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
  }
}

}  // namespace
