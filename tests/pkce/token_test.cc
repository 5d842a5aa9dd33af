// Tokens from the file: how long they are good, what a renewal and an exchange send, and what stays on disk.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "token_bench.h"

using namespace tokentest;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(Token, IsGoodInTheSecondOfItsExpiryAndNotInTheNext) {
  for (const int age : {kHour, kHour + 1, -86400}) {
    SCOPED_TRACE(age);
    TokenBench bench;
    const kivosim::TokenSet stored = bench.StoreTokens(age);
    const auto client = bench.Client();
    const bool renewed = age > kHour;
    EXPECT_EQ(renewed, client->GetAccessToken() != stored.accessToken);
    EXPECT_EQ(renewed, client->GetIdToken() != stored.idToken);
    EXPECT_EQ(renewed ? 1u : 0u, bench.cloud.Requests().size()) << "the second call finds the new set";
  }
}

TEST(Token, RenewalSendsItsParametersInOrderAndStoresTheAnswer) {
  TokenBench bench;
  const kivosim::TokenSet stored = bench.StoreTokens(2 * kHour);
  bench.cloud->SetHook([](const kivosim::Request&) {
    kivosim::Response answer;
    answer.body =
        R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":7,"created_at":5,"more":{"x":[1.5]}})";
    return answer;
  });
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
  TokenBench bench;
  bench.cloud->SetHook([](const kivosim::Request&) {
    kivosim::Response answer;
    answer.body = R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":"60"})";
    return answer;
  });
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
  TokenBench bench;
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
    TokenBench bench;
    WriteTokenFile(row.content);
    const std::string result = Result([&] { return bench.Client()->GetAccessToken(); });
    EXPECT_EQ(row.result, row.result == "code 2: " ? result.substr(0, 8) : result);
    EXPECT_THAT(bench.cloud.Requests(), IsEmpty());
    EXPECT_EQ(row.content, ReadFile(kTokenFile));
  }
  TokenBench bench;
  EXPECT_EQ("code 22: Failed to find an existed token file", Result([&] { return bench.Client()->GetIdToken(); }));
  ASSERT_EQ(0, mkdir(kTokenFile, 0700));
  EXPECT_EQ("code 2: ", Result([&] { return bench.Client()->GetIdToken(); }).substr(0, 8));
  ASSERT_EQ(0, rmdir(kTokenFile));
  WriteFile("/tmp/canary", R"({"created_at":1800000000,"expires_in":60,"access_token":"canary"})");
  ASSERT_EQ(0, symlink("/tmp/canary", kTokenFile));
  EXPECT_EQ("code 22: Failed to find an existed token file", Result([&] { return bench.Client()->GetAccessToken(); }));
}

TEST(Token, NamesThatCouldLeadElsewhereAreRefusedBeforeAnythingIsTouched) {
  TokenBench bench;
  for (const std::string& name : {std::string(), std::string("../lum"), std::string(".a"), std::string("a b"),
                                  std::string("a,b"), std::string("a\0b", 3), std::string(129, 'a')}) {
    varnkivo::PkceClient client(name);
    client.SetPkceConfig(Config());
    const auto code = [](const std::string& result) { return result.substr(0, 7); };
    EXPECT_EQ("code 1:", code(Result([&] { return client.GetAccessToken(); }))) << name;
    EXPECT_EQ("code 1:", code(Result([&] { return client.HasTokenFile() ? "yes" : "no"; }))) << name;
    EXPECT_EQ("code 1:", code(Result([&] { return client.ExchangeToken("c", "v", "r"), ""; }))) << name;
  }
  EXPECT_EQ(0u, bench.cloud->Connections());
  EXPECT_THAT(TokenFiles(), IsEmpty());
}

#ifndef __SANITIZE_THREAD__  // which knows no threads, such as libcurl's, in the child of a process that has threads
TEST(Token, AnotherUsersProcessIsRaisedForEachAccessAndOneWithoutRightsSeesNothing) {
  TokenBench bench;
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
  TokenBench bench;
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
  bench.device.FailNext("VARNLuinfoCloudServiceGetMacAddress");
  EXPECT_EQ("code 20:",
            Result([&] { return client.FormatPkceConfig(ParseJson(R"({"scope":"$mac$"})")), ""; }).substr(0, 8));
  EXPECT_EQ("", client.FormatPkceConfig(ParseJson("{}"))["scope"].asString()) << "no fact is read without need";
  for (const char* wrong : {"[]", "5", R"({"scope":{}})", R"({"client_id":["a"]})"})
    EXPECT_EQ("code 2: ", Result([&] { return client.FormatPkceConfig(ParseJson(wrong)), ""; }).substr(0, 8)) << wrong;
}

}  // namespace
