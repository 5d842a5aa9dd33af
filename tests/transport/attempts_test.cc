// Attempts, the pauses between them and the options they run under.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cloud.h"
#include "fake_platform.h"
#include "kivo_request.h"

using namespace testsupport;
using testing::Contains;

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
      {false, {6, 5, 6}, {"any", "try", "usleep(1000000)", "try", "IPv4", "usleep(1000000)", "try"}, -1, 6},
      {false, {28, 28}, {"any", "try", "usleep(1000000)", "try", "IPv4", "usleep(1000000)", "try"}, 0, 0},
      {false, {5}, {"any", "try", "usleep(1000000)", "try"}, 0, 0},
      {false, {28, 7}, {"any", "try", "usleep(1000000)", "try"}, -1, 7},
      {false, {60}, {"any", "try"}, -1, 60},
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
    if (row.result == 0) continue;
    const bool spent = row.results.size() >= (row.quick ? 2u : 3u);
    EXPECT_EQ(LoggedUrl() + (spent ? ", Failed to request packages, httpResponseCode=0, data="
                                   : ", Failed to curl perform, " + CurlError(row.curlCode)),
              device.LastLog());
  }
}

TEST(Attempts, OptionsOfQuickAndNormalRequests) {
  for (const bool quick : {true, false}) {
    FakePlatform device;
    Cloud cloud;
    cloud.AnswerAll(200, "{}");
    KivoRequest request;
    request.quick = quick;
    EXPECT_EQ(0, request.Send().result);
    const Calls calls = device.Calls("CURLOPT_");
    for (const char* option : {quick ? "CURLOPT_CONNECTTIMEOUT(15)" : "CURLOPT_CONNECTTIMEOUT(120)",
                               quick ? "CURLOPT_TIMEOUT(15)" : "CURLOPT_TIMEOUT(120)", "CURLOPT_LOW_SPEED_LIMIT(128)",
                               "CURLOPT_LOW_SPEED_TIME(60)", "CURLOPT_SSL_VERIFYPEER(1)", "CURLOPT_SSL_VERIFYHOST(2)",
                               "CURLOPT_CAINFO(/etc/ssl/certs/ca-certificates.crt)", "CURLOPT_SSLVERSION(1)",
                               "CURLOPT_FOLLOWLOCATION(1)", "CURLOPT_POST(1)"})
      EXPECT_THAT(calls, Contains(option).Times(1));
  }
}

TEST(Attempts, AHostThatNobodyKnowsIsTriedToTheEnd) {
  for (const bool quick : {true, false}) {
    FakePlatform device;
    KivoRequest request;
    request.host = "https://nowhere.kivo.example";
    request.quick = quick;
    const Answer answer = request.Send();
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ(6, answer.curlCode);
    EXPECT_EQ(0, answer.status);
    EXPECT_EQ(quick ? 2u : 3u, device.Calls("curl_easy_perform").size());
  }
}

TEST(Attempts, HalfABodyIsNeverAnAnswerNorPartOfTheNext) {
  using kivosim::End;
  using kivosim::Fault;
  using kivosim::Framing;
  for (const Framing framing : {Framing::kLength, Framing::kChunked}) {
    FakePlatform device;
    device.ShortenTimeOuts(100);
    Cloud cloud;
    cloud.AnswerAll(200, "half of it is here");
    Fault stalls = Fault::CutBody(framing == Framing::kChunked ? 8 : 4, framing, End::kSilence);
    stalls.times = 2;
    cloud->QueueFault("*", stalls);
    const Answer none = KivoRequest{}.Send();
    EXPECT_EQ(-1, none.result);
    EXPECT_EQ(KIVO_ERR_SEND, none.code);
    EXPECT_EQ(28, none.curlCode);
    EXPECT_EQ(200, none.status);
    EXPECT_FALSE(none.hasBody);
    EXPECT_EQ(LoggedUrl() + ", Failed to request packages, httpResponseCode=200, data=half", device.LastLog());

    stalls.times = 1;
    cloud->QueueFault("*", stalls);
    EXPECT_EQ("half of it is here", KivoRequest{}.Send().body);
    EXPECT_EQ(4u, cloud.Requests().size());
  }
}

}  // namespace
