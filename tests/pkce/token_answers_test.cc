// Answers of the token endpoint that are no token set, and disks that hold none: what each leaves behind.
#include <gmock/gmock.h>
#include <unistd.h>
#include <utime.h>

#include <varnkivo/file_lock.h>

#include "token_bench.h"

using namespace tokentest;
using kivosim::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kGood = R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":60})";

const std::string kSecretSet = R"({"access_token":"a","refresh_token":"r"})";
const std::string kShownSet = R"({"access_token":"a...","refresh_token":"r..."})";
const std::string kRefused = "code 14: Failed to renew token, refresh_token is expired or revoked, ";
const std::string kNotRenewed = "Failed to parse renew token resp, code=200, resp=";
const std::string kNotExchanged = "code 22: Failed to parse exchange authkey resp, code=200, resp=";
const std::string kNoExchange = "code 5: Failed to exchange token, ";

const struct {
  int status;
  std::string body, renewal, exchange;
} kRows[] = {{200, kGood, "a", "done"},
             {200, "<html>", "code 2", "code 2"},
             {200, "[1]", "code 5: " + kNotRenewed + "[1]", kNotExchanged + "[1]"},
             {400, R"({"error":"invalid_grant"})", kRefused + R"(code=400, resp={"error":"invalid_grant"})",
              kNoExchange + R"(code=400, resp={"error":"invalid_grant"})"},
             {503, kSecretSet, kRefused + "code=503, resp=" + kShownSet, kNoExchange + "code=503, resp=" + kShownSet},
             {400, "down", "code 2", kNoExchange + "code=400, resp=down"},
             {200, kSecretSet, "code 22: " + kNotRenewed + kShownSet, kNotExchanged + kShownSet}};

TEST(TokenAnswer, HasItsCodeAndKeepsTheFileUnlessItIsASet) {
  for (const auto& row : kRows)
    for (const bool renewal : {true, false}) {
      SCOPED_TRACE((renewal ? "renewal " : "exchange ") + std::to_string(row.status) + " " + row.body);
      TokenBench bench;
      bench.StoreTokens(2 * kHour);
      bench.device.MustNotLog("verifier-012");
      const std::string before = ReadFile(kTokenFile);
      bench.cloud.AnswerAll(row.status, row.body);
      const auto client = bench.Client();
      const std::string& expected = renewal ? row.renewal : row.exchange;
      const std::string result = Result([&] {
        if (renewal) return client->GetAccessToken();
        client->ExchangeToken("code-0123456789", "verifier-0123456789", "https://r");
        return std::string("done");
      });
      EXPECT_EQ(expected, expected == "code 2" ? result.substr(0, 6) : result);
      EXPECT_EQ(expected.rfind("code", 0) == 0, before == ReadFile(kTokenFile));
      EXPECT_EQ("0600 934:934", ModeAndOwner(kTokenFile));
      EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
      EXPECT_EQ(1u, bench.cloud.Requests().size());
      const std::string last = bench.device.LastLine();
      EXPECT_TRUE(expected != "code 2" || last == "..//include/internal/json_utils Failed to parse json: " + row.body)
          << last;
    }
}

TEST(TokenAnswer, WithCommentsIsAFileThatCanBeReadAndWithControlCharactersIsNone) {
  const struct {
    std::string body, result;
  } rows[] = {
      {"// a\n{ // b\n\"access_token\":\"a\", // c\n\"id_token\":\"i\",\"refresh_token\":\"r\",\"expires_in\":60}",
       "a"},
      {R"({"access_token":"a\u0000b","id_token":"i","refresh_token":"r","expires_in":60})", "code 22"},
      {R"({"access_token":"a\r\nX: 1","id_token":"i","refresh_token":"r","expires_in":60})", "code 22"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.body);
    TokenBench bench;
    bench.StoreTokens(2 * kHour);
    const std::string before = ReadFile(kTokenFile);
    bench.cloud.AnswerAll(200, row.body);
    const auto client = bench.Client();
    EXPECT_EQ(row.result, Result([&] { return client->GetAccessToken(); }).substr(0, row.result.size()));
    EXPECT_EQ(row.result != "a", before == ReadFile(kTokenFile));
    if (row.result == "a") {
      EXPECT_EQ("i", client->GetIdToken()) << "from the file";
    }
  }
}

TEST(TokenAnswer, ThatDoesNotArriveIsCodeFiveWithTheTransportsWords) {
  const std::string endless(17u << 20, 'x');
  const struct {
    const char* what;
    Fault fault;
  } rows[] = {{"cut", Fault::CutBody(5)},
              {"too much", Fault::Answer(200, endless)},
              {"to http", Fault::Redirect("http://identity.kivo.example/x", 307)},
              {"in a circle", Fault::Redirect("/oauth2/token", 307)}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TokenBench bench;
    bench.StoreTokens(2 * kHour);
    const std::string before = ReadFile(kTokenFile);
    Fault fault = row.fault;
    if (std::string(row.what) == "in a circle") fault.times = -1;
    bench.cloud->QueueFault("*", fault);
    EXPECT_THAT(Result([&] { return bench.Client()->GetAccessToken(); }),
                testing::MatchesRegex("code 5: Failed to renew token, reqcode=[0-9]+, reqmsg=.*"));
    EXPECT_EQ(before, ReadFile(kTokenFile));
    EXPECT_GE(6u, bench.cloud.Requests().size());
    EXPECT_EQ("", bench.cloud->PlainHttpReceived());
  }
}

TEST(TokenAnswer, ABadCertificateGetsNoByteAndNeitherDoesAnHttpHost) {
  TokenBench bench;
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
    TokenBench bench;
    bench.StoreTokens(2 * kHour);
    bench.cloud->SetHook([&](const kivosim::Request&) {
      if (signedOut)
        unlink(kTokenFile);
      else
        WriteTokenFile(
            R"({"access_token":"newer","id_token":"i","refresh_token":"other","expires_in":60,"created_at":1800000000})");
      kivosim::Response answer;
      answer.body = kGood;
      return answer;
    });
    EXPECT_EQ(signedOut ? "code 22: Failed to find an existed token file" : "newer",
              Result([&] { return bench.Client()->GetAccessToken(); }));
    EXPECT_EQ(!signedOut, IsThere(kTokenFile));
    EXPECT_THAT(TokenFiles(), testing::SizeIs(signedOut ? 0 : 1));
  }
}

TEST(TokenSave, LeftoversOfACrashGoButNotThoseInUse) {
  TokenBench bench;
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
  const struct {
    const char* call;
    int before;
    std::string result, log;
  } rows[] = {
      {"rename", 0, "code 2: ", std::string("..//include/internal/json_utils Failed to save json: ") + kTokenFile},
      {"fchmod", 1, "token",
       std::string("pkce_client Failed to chmod, path=") + kTokenFile + ", reason=Operation not permitted"},
      {"fchown", 1, "token",
       std::string("pkce_client Failed to chown, path=") + kTokenFile + ", reason=Operation not permitted"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    TokenBench bench;
    bench.StoreTokens(2 * kHour);
    bench.Client()->GetAccessToken();  // makes the lock files
    bench.StoreTokens(2 * kHour);
    const std::string before = ReadFile(kTokenFile);
    bench.device.FailAfter(row.call, row.before);
    const std::string result = Result([&] { return bench.Client()->GetAccessToken(); });
    EXPECT_EQ(row.result, result.rfind("code", 0) == 0 ? result.substr(0, 8) : "token");
    EXPECT_EQ(row.log, bench.device.LastLine());
    EXPECT_EQ(row.result != "token", before == ReadFile(kTokenFile));
    EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
  }
}

TEST(TokenSave, ALockHeldElsewhereIsCode22AfterHalfAMinute) {
  for (const char* operation : {"get", "renew", "save", "exchange"}) {
    SCOPED_TRACE(operation);
    TokenBench bench;
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
