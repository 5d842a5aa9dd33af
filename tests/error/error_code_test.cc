// Codes, their messages, what servers and the cloud service report as a code, and the text of an exception with odd
// stack frames put in place of the system's.
#include <gtest/gtest.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <sstream>
#include <vector>

#include "fake_platform.h"

using varnkivo::KivoException;

namespace {

std::vector<const char*> gFrames;  // the capture's own first

}  // namespace

extern "C" int backtrace(void** addresses, int size) {
  const int count = std::min(size, static_cast<int>(gFrames.size()));
  std::fill_n(addresses, count, nullptr);
  return count;
}

extern "C" char** backtrace_symbols(void* const*, int size) {
  auto** symbols = static_cast<const char**>(calloc(static_cast<std::size_t>(size), sizeof(char*)));
  std::copy_n(gFrames.begin(), size, symbols);
  return const_cast<char**>(symbols);  // the caller frees the array, not the texts
}

namespace {

TEST(ErrorCode, EightCodesHaveAMessageOfTheirOwnAndNoOther) {
  const std::map<int, std::string> messages = {{0, "Success"},
                                               {1, "Wrong parameters"},
                                               {2, "Wrong JSON format"},
                                               {3, "Failed to get kivo account"},
                                               {14, "Failed to auth"},
                                               {4, "Failed to send the request"},
                                               {5, "Failed to get the response"},
                                               {7, "Failed to get the payment config (url)"}};
  for (int code = -2; code < 64; ++code)
    EXPECT_EQ(messages.count(code) ? messages.at(code) : "System error", GetKivoErrorMsg(code)) << code;
}

TEST(ErrorCode, AccountErrorsAreMatchedByPrefixInTableOrder) {
  std::istringstream table(
      "good 0 badparam 1 badauth 14 badsys 6 badnetwork 15 account_inused 16 serial_exceed_max_account_register 17 "
      "account_unverified 18 account_userid 0 account_not_found 25 apikey_not_found 26 apikey_expired 27 "
      "invalid_machine 28 goodness 0 badnetwork:x 15 goo 24 Good 24 _good 24");
  int code = 0;
  for (std::string error; table >> error >> code;) {
    SCOPED_TRACE(error);
    VARNKIVOErrSet(-77);
    EXPECT_EQ(code, GetErrorCodeFromAccountError(error.c_str()));
    EXPECT_EQ(-77, VARNKIVOErrGet());
    EXPECT_EQ(code, MapLibKivoCenterErrorCode(error.c_str()));
    EXPECT_EQ(code, VARNKIVOErrGet());
  }
  EXPECT_TRUE(GetErrorCodeFromAccountError(nullptr) == 24 && GetErrorCodeFromAccountError("") == 24);
}

TEST(ErrorCode, CloudServiceCodesAreTranslatedWithoutTouchingTheSlot) {
  for (long reported = -1; reported < 12; ++reported) {
    testsupport::FakePlatform device;
    VARNKIVOErrSet(7);
    device.FailNext("VARNCloudServiceGetErrorCode", 1, reported);
    EXPECT_EQ(reported == 0 ? 0 : reported == 1 ? 15 : reported == 9 ? 28 : 24, GetErrorCodeFromCloudService());
    EXPECT_EQ(7, VARNKIVOErrGet());
  }
}

TEST(KivoException, TextIsMessageCodeAndStackAndACopyNestsThatOfItsSource) {
  gFrames = {"capture(self+0) [0x0]", "/x.so(_ZN8varnkivo9BacktraceC1Ev+0x1f) [0x7f]", "/a(main) [0x1]", "/a(run+1",
             nullptr};
  const std::string stack = "\n- varnkivo::Backtrace::Backtrace() +0x1f\n- /a(main) [0x1]\n- /a(run+1\n- \n";
  const KivoException first(KIVO_ERR_TOKEN, "no 100% luck"), second(first);
  EXPECT_EQ("no 100% luck [code=22]" + stack, first.what());
  EXPECT_EQ(first.what() + (" [code=22]" + stack), second.what());
  EXPECT_EQ(22, second.GetCode());
  EXPECT_EQ("gone [code=24]" + stack, KivoException("gone").what());
  EXPECT_EQ("Failed to get the payment config (url) [code=7]" + stack, KivoException(KIVO_ERR_PAYMENT_CONFIG).what());
}

}  // namespace
