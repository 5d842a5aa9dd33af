// What leaves the library with a request, byte for byte, and what of the answer comes back.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

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
  const struct {
    const char* what;
    KivoRequest request;
    std::string query;
  } cases[] = {
      {"enumeration order", {{{"z", "1"}, {"a", "2"}, {"m", ""}}}, std::string(kDevice) + "&z=1&a=2&m="},
      {"values are escaped",
       {{{"v", "a b+c&d=e/\xc3\xa9%~-_."}}},
       std::string(kDevice) + "&v=a%20b%2Bc%26d%3De%2F%C3%A9%25~-_."},
      {"names are not", {{{"a[]%41", "x"}}}, std::string(kDevice) + "&a[]%41=x"},
      {"a serial given is taken, and sent again",
       {{{"a", "1"}, {"lu_sn", "2040VKN000009"}}},
       "lu_sn=2040VKN000009&lu_token=a990ea3b450dd618a02937a1b38a7639&a=1&lu_sn=2040VKN000009"},
  };
  for (const auto& row : cases)
    for (const bool get : {false, true}) {
      SCOPED_TRACE(std::string(row.what) + (get ? ", GET" : ", POST"));
      FakePlatform device;
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
  const pid_t child = fork();
  if (child == 0) _exit(sendFive(9));
#endif
  std::vector<std::thread> threads;
  for (int n = 1; n <= 4; ++n) threads.emplace_back([=] { EXPECT_EQ(5, sendFive(n)); });
  for (auto& thread : threads) thread.join();
#ifndef __SANITIZE_THREAD__
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(5, WEXITSTATUS(status));
#endif
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

}  // namespace
