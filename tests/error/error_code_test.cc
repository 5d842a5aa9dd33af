// Codes, their messages, the slot, and the translation of what servers and the cloud service report.
#include <gtest/gtest.h>
#include <varnkivo/varnkivo.h>

#include <climits>
#include <cstring>
#include <thread>

#include "fake_platform.h"

using testsupport::FakePlatform;

namespace {

const int gSlotAtStart = VARNKIVOErrGet();

TEST(ErrorCode, EightCodesHaveAMessageOfTheirOwnAndNoOther) {
  const struct {
    int code;
    const char* message;
  } messages[] = {{0, "Success"},
                  {1, "Wrong parameters"},
                  {2, "Wrong JSON format"},
                  {3, "Failed to get kivo account"},
                  {4, "Failed to send the request"},
                  {5, "Failed to get the response"},
                  {7, "Failed to get the payment config (url)"},
                  {14, "Failed to auth"}};
  for (int code = -2; code < 64; ++code) {
    const char* expected = "System error";
    for (const auto& row : messages)
      if (row.code == code) expected = row.message;
    EXPECT_STREQ(expected, GetKivoErrorMsg(code)) << code;
    testing::internal::CaptureStderr();
    printErrCode(code);
    EXPECT_EQ(code == 0 ? "" : std::string(expected) + "\n", testing::internal::GetCapturedStderr()) << code;
  }
  EXPECT_STREQ("System error", GetKivoErrorMsg(INT_MAX));
  EXPECT_STREQ("System error", GetKivoErrorMsg(INT_MIN));
}

TEST(ErrorCode, TheExportedTableHasItsRowsInOrder) {
  const struct {
    const char* key;
    int code;
  } rows[] = {{"good", 0},
              {"badparam", 1},
              {"badauth", 14},
              {"badsys", 6},
              {"badnetwork", 15},
              {"account_inused", 16},
              {"serial_exceed_max_account_register", 17},
              {"account_unverified", 18},
              {"account_userid", 0},
              {"account_not_found", 25},
              {"apikey_not_found", 26},
              {"apikey_expired", 27},
              {"invalid_machine", 28}};
  const _tag_kivo_error_code_row_* actual = gErrorCodeMap;
  for (const auto& row : rows) {
    ASSERT_STREQ(row.key, actual->key);
    EXPECT_EQ(row.code, actual->code) << row.key;
    ++actual;
  }
  EXPECT_EQ(nullptr, actual->key);
  EXPECT_EQ(24, actual->code);
  EXPECT_EQ(sizeof(void*) * 2, sizeof *actual);
}

TEST(ErrorCode, AccountErrorsAreMatchedByPrefixInTableOrder) {
  const struct {
    const char* error;
    int code;
  } cases[] = {{nullptr, 24},
               {"", 24},
               {"good", 0},
               {"goodness", 0},
               {"goo", 24},
               {"Good", 24},
               {" good", 24},
               {"badnetwork: no route", 15},
               {"badnet", 24},
               {"bad", 24},
               {"account_userid", 0},
               {"account_inused_by_other", 16},
               {"account_", 24},
               {"badauth", 14},
               {"badauth_expired", 14},
               {"invalid_machine\n", 28}};
  for (const auto& row : cases) {
    SCOPED_TRACE(row.error ? row.error : "null");
    VARNKIVOErrSet(-77);
    EXPECT_EQ(row.code, GetErrorCodeFromAccountError(row.error));
    EXPECT_EQ(-77, VARNKIVOErrGet());
    EXPECT_EQ(row.code, MapLibKivoCenterErrorCode(row.error));
    EXPECT_EQ(row.code, VARNKIVOErrGet());
  }
}

TEST(ErrorCode, CloudServiceCodesAreTranslatedWithoutTouchingTheSlot) {
  const int table[] = {0, 15, 24, 24, 24, 24, 24, 24, 24, 28};
  for (long reported = -3; reported < 13; ++reported) {
    FakePlatform device;
    VARNKIVOErrSet(7);
    device.FailNext("VARNCloudServiceGetErrorCode", 1, reported);
    EXPECT_EQ(reported < 0 || reported > 9 ? 24 : table[reported], GetErrorCodeFromCloudService()) << reported;
    EXPECT_EQ(7, VARNKIVOErrGet());
  }
}

TEST(ErrorCode, TheSlotIsOneForAllThreadsAndTakesAnyValue) {
  EXPECT_EQ(0, gSlotAtStart);
  for (const int code : {28, -1, INT_MAX, INT_MIN, 0}) {
    std::thread([=] { EXPECT_EQ(code, VARNKIVOErrSet(code)); }).join();
    EXPECT_EQ(code, VARNKIVOErrGet());
  }
}

}  // namespace
