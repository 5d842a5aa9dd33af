// Each step of a request made to fail in turn: code, message, and nothing sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "cloud.h"
#include "fake_platform.h"
#include "fake_state.h"
#include "kivo_request.h"

using namespace testsupport;

namespace {

constexpr char kToken[] = "a0a4056d043cce20c29fb87ea073c540";  // of WithAccount()
std::size_t gRefusedSize = 0;                                  // the library's calloc of so many bytes gives null

}  // namespace

/// Nothing in it that the thread sanitizer watches: a new thread allocates before the sanitizer knows it.
extern "C" __attribute__((no_sanitize("thread"))) void* calloc(std::size_t count, std::size_t size) noexcept {
  static void* (*next)(std::size_t, std::size_t) = nullptr;
  const std::size_t refused = __atomic_load_n(&gRefusedSize, __ATOMIC_SEQ_CST);
  if (refused != 0 && count * size == refused && InLibrary(__builtin_return_address(0))) return nullptr;
  if (!next) next = Next<void*(std::size_t, std::size_t)>("calloc");
  return next(count, size);
}

namespace {

KivoRequest WithAccount() {
  KivoRequest request{{{"passwd", "canary"}}};
  request.accountId = "1001";
  request.password = "canary";
  return request;
}

TEST(FailingStep, GivesItsCodeAndMessageAndSendsNothing) {
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
    Cloud cloud;
    cloud.AnswerAll(200, "{}");
    TouchTrustBundle();
    device.FailAfter(step.call, step.before);
    const Answer answer = WithAccount().Send();
    EXPECT_EQ(step.sent ? 0 : -1, answer.result);
    EXPECT_EQ(step.sent ? 99 : KIVO_ERR_SEND, answer.code);
    EXPECT_EQ(step.sent ? 200 : 0, answer.status);
    EXPECT_EQ(step.message, device.LastLog());
    EXPECT_EQ(step.source, device.LastLogSource());
    EXPECT_EQ(1u, device.Lines().size());
    EXPECT_EQ(step.sent ? 1u : 0u, cloud.Requests().size());
  }
}

TEST(FailingStep, TheOthersStopTheRequestWithoutShowingASecret) {
  const struct {
    const char* call;
    int before = 0;
  } steps[] = {{"CURLOPT_IPRESOLVE"},   {"curl_slist_append"},     {"curl_easy_escape", 1},
               {"curl_easy_escape", 3}, {"curl_easy_escape", 4},  // the password and a parameter that holds one
               {"CURLOPT_MAXREDIRS"},   {"CURLOPT_PROTOCOLS_STR"}, {"CURLOPT_REDIR_PROTOCOLS_STR"}};
  for (const auto& step : steps) {
    SCOPED_TRACE(std::string(step.call) + " " + std::to_string(step.before));
    FakePlatform device;
    device.MustNotLog("canary");
    device.MustNotLog(kToken);
    Cloud cloud;
    device.FailAfter(step.call, step.before);
    const Answer answer = WithAccount().Send();
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ(KIVO_ERR_SEND, answer.code);
    EXPECT_TRUE(cloud.Requests().empty());
  }
}

TEST(FailingStep, AnUnreadableStatusIsNoAnswer) {
  FakePlatform device;
  Cloud cloud;
  cloud.AnswerAll(200, "{}");
  device.FailNext("curl_easy_getinfo");
  const Answer answer = KivoRequest{}.Send();
  EXPECT_EQ(-1, answer.result);
  EXPECT_EQ(KIVO_ERR_SEND, answer.code);
  EXPECT_FALSE(answer.hasBody);
  EXPECT_EQ(LoggedUrl() + ", Failed to curl_easy_getinfo, " + CurlError(48), device.LastLog());
}

TEST(FailingStep, EveryConcatenationThatFailsIsReportedByWhoeverWantedIt) {
  int failures = 0;
  for (std::string source = "kivo_token_generation";; ++failures) {
    FakePlatform device;
    Cloud cloud;
    cloud.AnswerAll(200, "{}");
    device.FailAfter("VLIBCStrCat", failures);
    const Answer answer = KivoRequest{{{"a", "1"}}}.Send();
    if (answer.result == 0) {
      device.StopFailing();
      break;
    }
    EXPECT_EQ(KIVO_ERR_SEND, answer.code);
    EXPECT_EQ("Fail to concat string", device.LastLog());
    if (failures == 3) source = "kivo_https_req_send";  // after serial, account and password
    EXPECT_EQ(source, device.LastLogSource()) << failures;
    EXPECT_TRUE(cloud.Requests().empty());
  }
  EXPECT_GE(failures, 3 + 3 * 3);
}

TEST(FailingStep, NoMemoryForTheQueryIsCodeSix) {
  FakePlatform device;
  Cloud cloud;
  gRefusedSize = 1024;
  const Answer answer = KivoRequest{}.Send();
  gRefusedSize = 0;
  EXPECT_EQ(-1, answer.result);
  EXPECT_EQ(KIVO_ERR_SYSTEM, answer.code);
  EXPECT_TRUE(cloud.Requests().empty());
}

TEST(FailingStep, AnAllocationThatFailsAnywhereEndsTheRequestWithItsCode) {
  const auto request = std::make_unique<_tag_libkivo_varn_request_>();
  request->host = kHost;
  request->path = "device/api/a/path/that/does/not/fit/into/a/short/string";
  std::strcpy(request->account_id, "somebody-with-a-long-name@example.com");
  std::strcpy(request->account_password, "a password of more than sixteen letters");
  for (const int status : {200, 500})
    for (const int method : {1, 2}) {
      int k = 0;
      for (bool failed = true; failed;) {
        SCOPED_TRACE(std::to_string(status) + " " + std::to_string(method) + ", allocation " + std::to_string(++k));
        FakePlatform device;
        Cloud cloud;
        cloud.AnswerAll(status, "{\"an answer\":\"of more than sixteen letters\"}");
        request->method = method;
        TouchTrustBundle();
        _tag_libkivo_varn_response_ response = {};
        device.FailAllocation(k);
        const int result = VARNKIVOHttpsRequestSend(request.get(), &response);
        failed = device.AllocationFailed();
        EXPECT_EQ(failed || status == 500 ? -1 : 0, result) << device.LastLog();
        const bool inToken = device.LastLogSource() == "kivo_token_generation";  // a token that fails is code 4
        const int failure = inToken || !failed ? KIVO_ERR_SEND : KIVO_ERR_SYSTEM;
        EXPECT_EQ(result == 0 ? 0 : failure, VARNKIVOErrGet()) << device.LastLog();
        VARNKIVOHttpsResponseFree(&response);
      }
      EXPECT_GT(k, 3);
    }
}

}  // namespace
