// Codes, their messages, the slot, and the translation of what servers and the cloud service report.
#include <gtest/gtest.h>
#include <varnkivo/varnkivo.h>

#include <climits>
#include <map>
#include <sstream>
#include <thread>

#include "fake_platform.h"

namespace {

const int gSlotAtStart = VARNKIVOErrGet();

TEST(ErrorCode, EightCodesHaveAMessageOfTheirOwnAndNoOther) {
  const std::map<int, std::string> messages = {{0, "Success"},
                                               {1, "Wrong parameters"},
                                               {2, "Wrong JSON format"},
                                               {3, "Failed to get kivo account"},
                                               {4, "Failed to send the request"},
                                               {5, "Failed to get the response"},
                                               {7, "Failed to get the payment config (url)"},
                                               {14, "Failed to auth"}};
  for (int code = -2; code < 64; ++code) {
    const std::string expected = messages.count(code) ? messages.at(code) : "System error";
    EXPECT_EQ(expected, GetKivoErrorMsg(code)) << code;
    testing::internal::CaptureStderr();
    printErrCode(code);
    EXPECT_EQ(code == 0 ? "" : expected + "\n", testing::internal::GetCapturedStderr()) << code;
  }
}

TEST(ErrorCode, AccountErrorsAreMatchedByPrefixInTableOrder) {
  std::istringstream table(
      "good 0 badparam 1 badauth 14 badsys 6 badnetwork 15 account_inused 16 serial_exceed_max_account_register 17 "
      "account_unverified 18 account_userid 0 account_not_found 25 apikey_not_found 26 apikey_expired 27 "
      "invalid_machine 28 goodness 0 badnetwork:x 15 goo 24 Good 24 _good 24");
  const _tag_kivo_error_code_row_* row = gErrorCodeMap;
  int code = 0;
  for (std::string error; table >> error >> code;) {
    SCOPED_TRACE(error);
    VARNKIVOErrSet(-77);
    EXPECT_EQ(code, GetErrorCodeFromAccountError(error.c_str()));
    EXPECT_EQ(-77, VARNKIVOErrGet());
    EXPECT_EQ(code, MapLibKivoCenterErrorCode(error.c_str()));
    EXPECT_EQ(code, VARNKIVOErrGet());
    EXPECT_TRUE(!row->key || error == row++->key) << "callers read the table too";
  }
  EXPECT_TRUE(row == gErrorCodeMap + 13 && !row->key && row->code == 24);
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

TEST(ErrorCode, TheSlotIsOneForAllThreadsAndTakesAnyValue) {
  EXPECT_EQ(0, gSlotAtStart);
  for (const int code : {28, INT_MIN, 0}) {
    std::thread([=] { EXPECT_EQ(code, VARNKIVOErrSet(code)); }).join();
    EXPECT_EQ(code, VARNKIVOErrGet());
  }
}

}  // namespace
