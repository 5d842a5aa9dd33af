// Answers of the token endpoint that are no token set, and disks that hold none: what each leaves behind.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <varnkivo/file_lock.h>
#include <varnkivo/kivo_exception.h>

#include "token_bench.h"

using namespace tokentest;
using kivosim::Fault;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kGood = R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":60})";

struct Row {
  int status;
  std::string body, renewal, exchange;
};

const Row kRows[] = {
    {200, kGood, "a", "done"},
    {200, "<html>", "code 2", "code 2"},
    {200, "[1]", "code 5: Failed to parse renew token resp, code=200, resp=[1]",
     "code 22: Failed to parse exchange authkey resp, code=200, resp=[1]"},
    {400, R"({"error":"invalid_grant"})",
     R"(code 14: Failed to renew token, refresh_token is expired or revoked, code=400, resp={"error":"invalid_grant"})",
     R"(code 5: Failed to exchange token, code=400, resp={"error":"invalid_grant"})"},
    {503, kGood,
     R"(code 14: Failed to renew token, refresh_token is expired or revoked, code=503, resp={"access_token":"a...","id_token":"i...","refresh_token":"r...","expires_in":60})",
     R"(code 5: Failed to exchange token, code=503, resp={"access_token":"a...","id_token":"i...","refresh_token":"r...","expires_in":60})"},
    {400, "down", "code 2", "code 5: Failed to exchange token, code=400, resp=down"},
    {200, R"({"access_token":"a","refresh_token":"r"})",
     R"(code 22: Failed to parse renew token resp, code=200, resp={"access_token":"a...","refresh_token":"r..."})",
     R"(code 22: Failed to parse exchange authkey resp, code=200, resp={"access_token":"a...","refresh_token":"r..."})"},
    {200, "{\"access_token\":\"\xff\",\"id_token\":\"i\",\"refresh_token\":\"r\"}",
     "code 22: Failed to parse renew token resp, code=200, "
     "resp={\"access_token\":\"\xff...\",\"id_token\":\"i...\",\"refresh_token\":\"r...\"}",
     "code 22: Failed to parse exchange authkey resp, code=200, "
     "resp={\"access_token\":\"\xff...\",\"id_token\":\"i...\",\"refresh_token\":\"r...\"}"}};

TEST(TokenAnswer, HasItsCodeAndKeepsTheFileUnlessItIsASet) {
  for (const Row& row : kRows)
    for (const bool renewal : {true, false}) {
      SCOPED_TRACE((renewal ? "renewal " : "exchange ") + std::to_string(row.status) + " " + row.body);
      TokenBench bench;
      bench.StoreTokens(2 * kHour);
      bench.device.MustNotLog("verifier-012");
      const std::string before = FakePlatform::Read(kTokenFile);
      bench.cloud.AnswerAll(row.status, row.body);
      const auto client = bench.Client();
      const std::string& expected = renewal ? row.renewal : row.exchange;
      const std::string result = Result([&] {
        if (renewal) return client->GetAccessToken();
        client->ExchangeToken("code-0123456789", "verifier-0123456789", "https://r");
        return std::string("done");
      });
      EXPECT_EQ(expected, expected == "code 2" ? result.substr(0, 6) : result);
      EXPECT_EQ(expected.rfind("code", 0) == 0, before == FakePlatform::Read(kTokenFile));
      EXPECT_EQ("0600 934:934", ModeAndOwner(kTokenFile));
      EXPECT_THAT(TokenFiles(), ElementsAre("lum_token.json"));
      EXPECT_EQ(1u, bench.cloud.Requests().size());
      const std::string last = bench.device.LastLogSource() + " " + bench.device.LastLog();
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
    const std::string before = FakePlatform::Read(kTokenFile);
    bench.cloud.AnswerAll(200, row.body);
    const auto client = bench.Client();
    EXPECT_EQ(row.result, Result([&] { return client->GetAccessToken(); }).substr(0, row.result.size()));
    EXPECT_EQ(row.result != "a", before == FakePlatform::Read(kTokenFile));
    if (row.result == "a") {
      EXPECT_EQ("i", client->GetIdToken()) << "from the file";
    }
  }
}

#ifndef __SANITIZE_THREAD__  // which knows no threads, such as libcurl's, in the child of a process that has threads
/// Renews with the `k`-th allocation failing, and once more: 0 well, 1 not, 2 well and there are no more allocations.
int RenewTwice(TokenBench& bench, int k) {
  const auto client = bench.Client();
  bench.device.FailAllocation(k);
  try {
    client->GetAccessToken();
  } catch (const std::bad_alloc&) {
  } catch (const varnkivo::KivoException&) {
  }
  const bool failed = bench.device.AllocationFailed();
  const bool well = Result([&] { return client->GetAccessToken(); }) == "a" && TokenFiles().size() == 1;
  return well ? (failed ? 0 : 2) : 1;
}

TEST(TokenAnswer, AnAllocationThatFailsBreaksNoLaterRequest) {
  TokenBench bench;
  bench.StoreTokens(2 * kHour);
  const std::string more(100000, 'x');
  bench.cloud.AnswerAll(
      200, R"({"access_token":"a","id_token":"i","refresh_token":"r","expires_in":-1,"more":")" + more + "\"}");
  int status = 0;
  for (int k = 1; k < 2000 && !HasFailure() && WEXITSTATUS(status) != 2; ++k) {
    const pid_t child = fork();
    if (child == 0) {
      fclose(stderr);
      _exit(RenewTwice(bench, k));
    }
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) ? WTERMSIG(status) == SIGABRT : WEXITSTATUS(status) != 1)
        << k << ": " << status << " (only varnkivo::format may end the process)";
    for (const std::string& name : TokenFiles())  // what such an end leaves
      if (name != "lum_token.json") unlink((std::string(kPrivateFolder) + "/" + name).c_str());
  }
  EXPECT_EQ(2, WEXITSTATUS(status));
}
#endif

TEST(TokenAnswer, ThatDoesNotArriveIsCodeFiveWithTheTransportsWords) {
  const std::string endless(17u << 20, 'x');
  const struct {
    const char* what;
    Fault fault;
  } rows[] = {{"cut", Fault::CutBody(5)},
              {"reset", Fault::ResetAfterRequest()},
              {"too much", Fault::Answer(200, endless)},
              {"to http", Fault::Redirect("http://identity.kivo.example/x", 307)},
              {"in a circle", Fault::Redirect("/oauth2/token", 307)}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    TokenBench bench;
    bench.StoreTokens(2 * kHour);
    const std::string before = FakePlatform::Read(kTokenFile);
    Fault fault = row.fault;
    if (std::string(row.what) == "in a circle") fault.times = -1;
    bench.cloud->QueueFault("*", fault);
    EXPECT_THAT(Result([&] { return bench.Client()->GetAccessToken(); }),
                testing::MatchesRegex("code 5: Failed to renew token, reqcode=[0-9]+, reqmsg=.*"));
    EXPECT_EQ(before, FakePlatform::Read(kTokenFile));
    EXPECT_GE(6u, bench.cloud.Requests().size());
    EXPECT_EQ("", bench.cloud->PlainHttpReceived());
  }
}

TEST(TokenAnswer, ABadCertificateGetsNoByteAndNeitherDoesAnHttpHost) {
  for (std::size_t kind = 0; kind < kivosim::CertificateKindNames().size(); ++kind) {
    const auto certificate = static_cast<kivosim::CertificateKind>(kind);
    if (certificate == kivosim::CertificateKind::kGood || certificate == kivosim::CertificateKind::kWithIntermediate)
      continue;
    SCOPED_TRACE(kivosim::CertificateKindNames()[kind]);
    TokenBench bench;
    bench.StoreTokens(2 * kHour);
    bench.cloud->QueueCertificate(certificate);
    EXPECT_EQ("code 5:", Result([&] { return bench.Client()->GetAccessToken(); }).substr(0, 7));
    EXPECT_TRUE(bench.cloud->WaitIdle());
    EXPECT_EQ(0u, bench.cloud->ApplicationBytes());
  }
  TokenBench bench;
  bench.StoreTokens(2 * kHour);
  for (const std::string& endpoint : {"http://127.0.0.1:" + std::to_string(Cloud::Sim().PlainHttpPort()) + "/",
                                      std::string("file:///etc/hostname"), std::string()}) {
    Json::Value config = Config();
    config["token_endpoint"] = endpoint;
    const auto client = bench.Client();
    client->SetPkceConfig(config);
    EXPECT_EQ("code 5:", Result([&] { return client->GetAccessToken(); }).substr(0, 7)) << endpoint;
  }
  EXPECT_EQ("", bench.cloud->PlainHttpReceived());
}

TEST(TokenAnswer, AClientIdThatWouldBecomeAHeaderIsRefused) {
  TokenBench bench;
  bench.StoreTokens(2 * kHour);
  for (const char* id : {"a\r\nX-Evil: 1", "a\n", "\x7f"}) {
    Json::Value config = Config();
    config["client_id"] = id;
    const auto client = bench.Client();
    client->SetPkceConfig(config);
    EXPECT_EQ("code 1:", Result([&] { return client->GetAccessToken(); }).substr(0, 7));
  }
  EXPECT_EQ(0u, bench.cloud->Connections());
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
    FakePlatform::Write(folder + name, "{}");
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
    const std::string before = FakePlatform::Read(kTokenFile);
    bench.device.FailAfter(row.call, row.before);
    const std::string result = Result([&] { return bench.Client()->GetAccessToken(); });
    EXPECT_EQ(row.result, result.rfind("code", 0) == 0 ? result.substr(0, 8) : "token");
    EXPECT_EQ(row.log, bench.device.LastLogSource() + " " + bench.device.LastLog());
    EXPECT_EQ(row.result != "token", before == FakePlatform::Read(kTokenFile));
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
