// What leaves the library with a request, byte for byte; attempts, the pauses between them and the options they run
// under; and each step of a request made to fail in turn.
#include <gmock/gmock.h>
#include <unistd.h>
#include <utime.h>

#include <sstream>
#include <thread>

#include "cloud.h"
#include "fake_platform.h"
#include "kivo_request.h"

using namespace testsupport;

namespace {

constexpr char kToken[] = "e05e64f82e307a2d1e6d118caf7935d0";  // of the serial number alone
constexpr char kDevice[] = "lu_sn=2040VKN000001&lu_token=e05e64f82e307a2d1e6d118caf7935d0";

std::string UserAgent() {
  char agent[256];
  EXPECT_EQ(0, VLIBLuinfoUserAgentGet("kivo", agent, sizeof agent));
  return agent;
}

/// Head of a request, its header lines in the order of libcurl.
std::string Head(const std::string& line, const std::string& more) {
  return line + " HTTP/1.1\r\nHost: account.kivo.example\r\nUser-Agent: " + UserAgent() + "\r\nAccept: */*\r\n" + more +
         "\r\n";
}

std::string Post(const std::string& body, const std::string& headers = "") {
  return Head("POST /device/api/test", headers + "Content-Length: " + std::to_string(body.size()) +
                                           "\r\nContent-Type: application/x-www-form-urlencoded\r\n") +
         body;
}

TEST(RequestBytes, ParametersInOrderEscapedAndTwiceWhereGivenTwice) {
  const std::string device = kDevice;
  const struct {
    KivoRequest request;
    std::string query;
  } cases[] = {{{{{"z", "1"}, {"a", "2"}, {"m", ""}}}, device + "&z=1&a=2&m="},
               {{{{"v", "a b+c&d=e/\xc3\xa9%~-_."}}}, device + "&v=a%20b%2Bc%26d%3De%2F%C3%A9%25~-_."},
               {{{{"a[]%41", "x"}}}, device + "&a[]%41=x"},  // names are not escaped
               {{{{"a", "1"}, {"lu_sn", "2040VKN000009"}}},  // a serial given is taken, and sent again
                "lu_sn=2040VKN000009&lu_token=a990ea3b450dd618a02937a1b38a7639&a=1&lu_sn=2040VKN000009"}};
  for (const auto& row : cases)
    for (const bool get : {false, true}) {
      const FakePlatform fakes;
      Cloud cloud;
      cloud.AnswerAll(200, "{}");
      KivoRequest request = row.request;
      request.get = get;
      EXPECT_EQ(0, request.Send().result);
      const auto requests = cloud.Requests();
      ASSERT_EQ(1u, requests.size());
      EXPECT_EQ(get ? Head("GET /device/api/test?" + row.query, "") : Post(row.query), requests[0].raw);
    }
}

TEST(RequestBytes, AccountAndPasswordFollowTheTokenThatTheyEnter) {
  FakePlatform device;
  Cloud cloud;
  cloud.AnswerAll(200, "{}");
  KivoRequest request{{{"a", "1"}}};
  request.accountId = "1001";
  request.password = "correct horse";
  EXPECT_EQ(0, request.Send().result);
  EXPECT_EQ("lu_sn=2040VKN000001&lu_token=09953b1766e935a1ab057c67e8d11fe2&kivoID=1001&kivoPW=correct%20horse&a=1",
            cloud.Requests().back().body);
  request.accountId = request.password = std::string(4096, 'x');  // no NUL in either field
  EXPECT_EQ(0, request.Send().result);
  EXPECT_EQ(request.accountId + request.password,
            cloud.Requests().back().Param("kivoID") + cloud.Requests().back().Param("kivoPW"));
}

TEST(RequestBytes, NothingOfARequestIsLeftInTheNext) {
  FakePlatform device;
  Cloud cloud;
  cloud.AnswerAll(200, "{}");
  curl_slist* headers = curl_slist_append(nullptr, "X-Canary: 1");
  KivoRequest post{{{"secret", "s"}}}, bare;
  post.headers = headers;
  bare.nullParams = true;
  bare.get = true;
  for (const KivoRequest* request : {&post, &bare, &post}) EXPECT_EQ(0, request->Send().result);
  const std::string posted = Post(std::string(kDevice) + "&secret=s", "X-Canary: 1\r\n");
  const auto requests = cloud.Requests();
  ASSERT_EQ(3u, requests.size());
  EXPECT_EQ(posted, requests[0].raw);
  EXPECT_EQ(Head(std::string("GET /device/api/test?") + kDevice, ""), requests[1].raw);
  EXPECT_EQ(posted, requests[2].raw);
  EXPECT_EQ(3u, cloud->Connections()) << "none is kept";
  EXPECT_STREQ("X-Canary: 1", headers->data) << "the list is still the caller's";
  curl_slist_free_all(headers);
}

TEST(RequestBytes, ThreadsAndAChildGetTheirOwnAnswers) {
  FakePlatform device;
  Cloud cloud;
  cloud->SetHook([](const kivosim::Request& request) { return kivosim::Response{200, request.Param("n")}; });
  const auto sendFive = [](int n) {
    int right = 0;
    for (int i = 0; i < 5; ++i) {
      const std::string text = std::to_string(n) + "." + std::to_string(i);
      right += KivoRequest{{{"n", text}}}.Send().body == text;
    }
    return right;
  };
  EXPECT_EQ(5, sendFive(0));
#ifndef __SANITIZE_THREAD__  // which knows no threads, such as libcurl's, in the child of a process that has threads
  EXPECT_EQ("5", InChild([&] { return std::to_string(sendFive(9)); }));
#endif
  std::vector<std::thread> threads;
  for (int n = 1; n <= 4; ++n) threads.emplace_back([=] { EXPECT_EQ(5, sendFive(n)); });
  for (auto& thread : threads) thread.join();
}

TEST(RequestBytes, AnAddressThatDoesNotFitIsNotSentCut) {
  FakePlatform device;
  Cloud cloud;
  cloud.AnswerAll(200, "{}");
  const std::size_t fixed = LoggedUrl().size() + 1 + std::strlen(kDevice) + std::strlen("&v=");
  for (const bool fits : {true, false}) {
    cloud->ClearJournal();
    const KivoRequest get{{{"v", std::string(4095 - fixed + (fits ? 0 : 1), 'v')}}, true};
    KivoRequest post;
    post.path = std::string(4095 - std::strlen(kHost) - 1 + (fits ? 0 : 1), 'p');
    for (const KivoRequest* request : {&get, static_cast<const KivoRequest*>(&post)}) {
      const Answer answer = request->Send();
      EXPECT_EQ(fits ? 0 : -1, answer.result);
      EXPECT_EQ(fits ? 99 : KIVO_ERR_SEND, answer.code);
    }
    EXPECT_EQ(fits ? 2u : 0u, cloud.Requests().size());
  }
  EXPECT_FALSE(device.HasLog(kToken)) << "the address in a log line shows the device token";
}

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
      {false, {5}, {"any", "try", "usleep(1000000)", "try"}, 0, 0},
      {false, {28, 7}, {"any", "try", "usleep(1000000)", "try"}, -1, 7},
      {true, {6, 6}, {"any", "try", "IPv4", "usleep(1000000)", "try"}, -1, 6},
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
  device.ShortenTimeOuts(5);
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
    const char* calls;
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
      {"CURLOPT_POST CURLOPT_POSTFIELDS", 0, url + ", Failed to set POST parameters, " + error},
      {"CURLOPT_URL CURLOPT_FOLLOWLOCATION", 0, "Failed to set url to " + url + ", " + error},
      {"CURLOPT_USERAGENT", 0, std::string("failed to set agent=") + agent + ", " + value},
      {"CURLOPT_HTTPHEADER", 0, "failed to set req=" + url + ", header=Host: " + kHost + ", " + value},
      {"CURLOPT_SSL_VERIFYPEER CURLOPT_SSL_VERIFYHOST CURLOPT_CAINFO CURLOPT_SSLVERSION", 0, option},
      {"VLIBCStrCat", 4, "Fail to concat string"},  // the token's texts come first
      {"CURLOPT_IPRESOLVE CURLOPT_MAXREDIRS CURLOPT_PROTOCOLS_STR CURLOPT_REDIR_PROTOCOLS_STR", 0, "?"},
      {"curl_easy_escape", 3, "?"},  // the password, and a parameter that holds one
      {"curl_easy_escape", 4, "?"},
      {"CURLOPT_LOW_SPEED_LIMIT CURLOPT_LOW_SPEED_TIME", 0, "F" + timeOut + value, "kivo_https_req_send", true},
      {"CURLOPT_CONNECTTIMEOUT", 0, "f" + timeOut + value, "kivo_https_req_send", true},
      {"CURLOPT_TIMEOUT", 0, "f" + timeOut + value},
      {"CURLOPT_WRITEFUNCTION", 0, "failed to write function WriteMemoryCallback, " + value},
      {"CURLOPT_WRITEDATA", 0, "failed to write data, " + value},
      {"VLIBLuinfoUserAgentGet", 0, "VLIBLuinfoUserAgentGet failed, varnerr=[0x0700 fake.c:1]", "kivo_agent_name_get",
       true},
  };
  for (const auto& step : steps) {
    std::istringstream calls(step.calls);
    for (std::string call; calls >> call;) {
      SCOPED_TRACE(call + " " + std::to_string(step.before));
      FakePlatform device;
      device.MustNotLog("canary");
      device.MustNotLog("a0a4056d043cce20c29fb87ea073c540");  // the token
      Cloud cloud;
      cloud.AnswerAll(200, "{}");
      ASSERT_EQ(0, utime("/etc/ssl/certs/ca-certificates.crt", nullptr));  // a handle is made anew for a new bundle
      device.FailAfter(call, step.before);
      KivoRequest request{{{"passwd", "canary"}}};
      request.accountId = "1001";
      request.password = "canary";
      const Answer answer = request.Send();
      EXPECT_EQ(step.sent ? 0 : -1, answer.result);
      EXPECT_EQ(step.sent ? 99 : KIVO_ERR_SEND, answer.code);
      EXPECT_EQ(step.sent ? 200 : 0, answer.status);
      EXPECT_TRUE(step.message == "?" || device.LastLine() == step.source + (" " + step.message)) << device.LastLine();
      EXPECT_GE(1u, device.Lines().size());
      EXPECT_EQ(step.sent ? 1u : 0u, cloud.Requests().size());
    }
  }
}

}  // namespace
