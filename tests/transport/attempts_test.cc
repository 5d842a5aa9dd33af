// Attempts, the pauses between them, the options they run under, and each step of a request made to fail in turn.
#include <gmock/gmock.h>
#include <utime.h>

#include "cloud.h"
#include "fake_platform.h"
#include "kivo_request.h"

using namespace testsupport;

namespace {

using Calls = std::vector<std::string>;

/// What happens from the first attempt on, and the address family before it.
Calls Attempts(const FakePlatform& device) {
  Calls found;
  for (const std::string& call : device.Calls()) {
    if (call == "CURLOPT_IPRESOLVE(0)") found.push_back("any");
    if (call == "CURLOPT_IPRESOLVE(1)") found.push_back("IPv4");
    if (call.rfind("curl_easy_perform", 0) == 0) found.push_back("try");
    if (call.rfind("usleep", 0) == 0) found.push_back(call);
  }
  return found;
}

TEST(Attempts, ResolutionAndTimeOutAreTriedAgainTheLastTimeOverIPv4) {
  const struct {
    bool quick;
    std::vector<long> results;  // of the first attempts; those after them are real
    Calls calls;
    int result, curlCode;
  } cases[] = {
      {false, {28, 28, 28}, {"any", "try", "usleep(1000000)", "try", "IPv4", "usleep(1000000)", "try"}, -1, 28},
      {false, {28, 28}, {"any", "try", "usleep(1000000)", "try", "IPv4", "usleep(1000000)", "try"}, 0, 0},
      {false, {5}, {"any", "try", "usleep(1000000)", "try"}, 0, 0},
      {false, {28, 7}, {"any", "try", "usleep(1000000)", "try"}, -1, 7},
      {true, {6, 6}, {"any", "try", "IPv4", "usleep(1000000)", "try"}, -1, 6},
      {true, {28}, {"any", "try", "IPv4", "usleep(1000000)", "try"}, 0, 0},
      {true, {35}, {"any", "try"}, -1, 35},
      {true, {}, {"any", "try"}, 0, 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(testing::PrintToString(row.results) + (row.quick ? " quick" : ""));
    FakePlatform device;
    Cloud cloud;
    cloud.AnswerAll(200, "{}");
    for (const long result : row.results) device.FailNext("curl_easy_perform", 1, result);
    KivoRequest request;
    request.quick = row.quick;
    const Answer answer = request.Send();
    EXPECT_EQ(row.calls, Attempts(device));
    EXPECT_EQ(row.result, answer.result);
    EXPECT_EQ(row.result == 0 ? 99 : KIVO_ERR_SEND, answer.code);
    EXPECT_EQ(row.curlCode, answer.curlCode);
    const std::string seconds = row.quick ? "(15)" : "(120)";
    for (const std::string& option :
         {"CONNECTTIMEOUT" + seconds, "TIMEOUT" + seconds, std::string("LOW_SPEED_LIMIT(128)"),
          std::string("LOW_SPEED_TIME(60)"), std::string("SSL_VERIFYPEER(1)"), std::string("SSL_VERIFYHOST(2)"),
          std::string("SSLVERSION(1)"), std::string("CAINFO(/etc/ssl/certs/ca-certificates.crt)")})
      EXPECT_EQ(1u, device.Calls("CURLOPT_" + option).size()) << option;
    if (row.result == 0) continue;
    const bool spent = row.results.size() >= (row.quick ? 2u : 3u);
    EXPECT_EQ(LoggedUrl() + (spent ? ", Failed to request packages, httpResponseCode=0, data="
                                   : ", Failed to curl perform, " + CurlError(row.curlCode)),
              device.LastLog());
  }
}

TEST(Attempts, HalfABodyIsNeverAnAnswerNorPartOfTheNext) {
  FakePlatform device;
  device.ShortenTimeOuts(15);
  Cloud cloud;
  cloud.AnswerAll(200, "half of it is here");
  auto stalls = kivosim::Fault::CutBody(4, kivosim::Framing::kLength, kivosim::End::kSilence);
  stalls.times = 2;
  cloud->QueueFault("*", stalls);
  const Answer none = KivoRequest{}.Send();
  EXPECT_EQ(KIVO_ERR_SEND, none.code);
  EXPECT_EQ(28, none.curlCode);
  EXPECT_FALSE(none.hasBody);
  EXPECT_EQ(LoggedUrl() + ", Failed to request packages, httpResponseCode=200, data=half", device.LastLog());
  cloud->QueueFault("*", kivosim::Fault::CutBody(8, kivosim::Framing::kChunked, kivosim::End::kSilence));
  EXPECT_EQ("half of it is here", KivoRequest{}.Send().body);
  EXPECT_EQ(4u, cloud.Requests().size());
}

TEST(FailingStep, GivesItsCodeAndMessageShowsNoSecretAndSendsNothing) {
  const std::string url = LoggedUrl(), error = CurlError(48), value = CurlError(48, "return value=%d, err=%s");
  char agent[256];
  ASSERT_EQ(0, VLIBLuinfoUserAgentGet("kivo", agent, sizeof agent));
  const std::string option = CurlError(48, "Failed to set curl opt error:(%d)%s"), timeOut = "ailed to set time-out, ";
  const struct {
    const char* call;
    int before;  // calls that succeed
    std::string message;
    const char* source = "kivo_https_req_send";
    bool sent = false;
  } steps[] = {
      {"curl_easy_init", 0, "failed to init pCurl"},
      {"VLIBGetSerialNumber", 0, "Failed to get serial number from flash. [0x0700 fake.c:1]", "kivo_token_generation"},
      {"VLIBCSzListAlloc", 0, "out of memory, ERR=[0x0700 fake.c:1]"},
      {"VLIBCSzHashEnumKey", 0, "no key in the hash, ERR=[0x0700 fake.c:1]"},
      {"curl_easy_escape", 0, "URL encoding failed: 2040VKN000001"},
      {"curl_easy_escape", 2, "URL encoding failed: 1001"},
      {"CURLOPT_POST", 0, url + ", Failed to set POST parameters, " + error},
      {"CURLOPT_POSTFIELDS", 0, url + ", Failed to set POST parameters, " + error},
      {"CURLOPT_URL", 0, "Failed to set url to " + url + ", " + error},
      {"CURLOPT_FOLLOWLOCATION", 0, "Failed to set url to " + url + ", " + error},
      {"CURLOPT_USERAGENT", 0, std::string("failed to set agent=") + agent + ", " + value},
      {"CURLOPT_HTTPHEADER", 0, "failed to set req=" + url + ", header=Host: " + kHost + ", " + value},
      {"CURLOPT_SSL_VERIFYPEER", 0, option},
      {"CURLOPT_SSL_VERIFYHOST", 0, option},
      {"CURLOPT_CAINFO", 0, option},
      {"CURLOPT_SSLVERSION", 0, option},
      {"VLIBCStrCat", 4, "Fail to concat string"},  // the token's texts come first
      {"CURLOPT_IPRESOLVE", 0, "?"},
      {"curl_slist_append", 0, "?"},
      {"curl_easy_escape", 3, "?"},  // the password, and a parameter that holds one
      {"curl_easy_escape", 4, "?"},
      {"CURLOPT_PROTOCOLS_STR", 0, "?"},
      {"CURLOPT_REDIR_PROTOCOLS_STR", 0, "?"},
      {"CURLOPT_LOW_SPEED_LIMIT", 0, "F" + timeOut + value, "kivo_https_req_send", true},
      {"CURLOPT_LOW_SPEED_TIME", 0, "F" + timeOut + value, "kivo_https_req_send", true},
      {"CURLOPT_CONNECTTIMEOUT", 0, "f" + timeOut + value, "kivo_https_req_send", true},
      {"CURLOPT_TIMEOUT", 0, "f" + timeOut + value},
      {"CURLOPT_WRITEFUNCTION", 0, "failed to write function WriteMemoryCallback, " + value},
      {"CURLOPT_WRITEDATA", 0, "failed to write data, " + value},
      {"VLIBLuinfoUserAgentGet", 0, "VLIBLuinfoUserAgentGet failed, varnerr=[0x0700 fake.c:1]", "kivo_agent_name_get",
       true},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(std::string(step.call) + " " + std::to_string(step.before));
    FakePlatform device;
    device.MustNotLog("canary");
    device.MustNotLog("a0a4056d043cce20c29fb87ea073c540");  // the token
    Cloud cloud;
    cloud.AnswerAll(200, "{}");
    ASSERT_EQ(0, utime("/etc/ssl/certs/ca-certificates.crt", nullptr));  // a handle is made anew for a new bundle
    device.FailAfter(step.call, step.before);
    KivoRequest request{{{"passwd", "canary"}}};
    request.accountId = "1001";
    request.password = "canary";
    const Answer answer = request.Send();
    EXPECT_EQ(step.sent ? 0 : -1, answer.result);
    EXPECT_EQ(step.sent ? 99 : KIVO_ERR_SEND, answer.code);
    EXPECT_EQ(step.sent ? 200 : 0, answer.status);
    if (step.message != "?") {
      EXPECT_EQ(step.source + (" " + step.message), device.LastLine());
    }
    EXPECT_GE(1u, device.Lines().size());
    EXPECT_EQ(step.sent ? 1u : 0u, cloud.Requests().size());
  }
}

}  // namespace
