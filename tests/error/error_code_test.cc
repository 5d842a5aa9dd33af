// Codes, their messages, the slot, and the translation of what servers and the cloud service report.
#include <gtest/gtest.h>
#include <varnkivo/varnkivo.h>

#include <map>
#include <sstream>

#include "fake_platform.h"

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

}  // namespace
