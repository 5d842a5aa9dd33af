// Serial number, device token and MD5 text. Expected values were computed by another program (Python's hashlib).
#include <gtest/gtest.h>
#include <varnkivo/varnkivo.h>

#include <memory>
#include <string>

#include "fake_platform.h"
#include "fake_state.h"

using namespace testsupport;

namespace {

std::string gFailingDigest;  // name of the libcrypto call that gives 0

}  // namespace

extern "C" int MD5_Init(void* context) {
  return gFailingDigest == "MD5_Init" ? 0 : Next<int(void*)>("MD5_Init")(context);
}
extern "C" int MD5_Final(unsigned char* digest, void* context) {
  return gFailingDigest == "MD5_Final" ? 0 : Next<int(unsigned char*, void*)>("MD5_Final")(digest, context);
}

namespace {

TEST(DeviceToken, AgreesWithValuesComputedElsewhere) {
  const std::string id4000(4000, 'i');
  const struct {
    std::string serial, accountId, password;
    const char* token;
  } vectors[] = {
      {"2040VKN000009", "", "", "a990ea3b450dd618a02937a1b38a7639"},  // first digit 0: one round
      {"2040VKN000005", "", "", "2b35e008d1dbf1d83950dd2ef1a31540"},  // first digit f: sixteen rounds
      {"2040VKN000001", "", "", "e05e64f82e307a2d1e6d118caf7935d0"},
      {"2040VKN000001", "1001", "correct horse", "09953b1766e935a1ab057c67e8d11fe2"},
      {"2040VKN000001", "10", "01correct horse", "09953b1766e935a1ab057c67e8d11fe2"},  // nothing between the parts
      {"2040VKN000001", "a@b.c", "p\xc3\xa4 \xc3\x9f", "97b2ab91291e5f3694191733af1048a7"},
      {"S", id4000, std::string(95, 'p'), "f93f122b51ee3e7188b8796f0ad1a278"},
      {"S", std::string(4095, 'i'), std::string(4095, 'p'), "7347e80d63471668ad92d155fd2715d5"},
  };
  FakePlatform device;
  for (const auto& vector : vectors) {
    SCOPED_TRACE(vector.token);
    std::string serial = vector.serial;
    const std::unique_ptr<char[]> token(new char[33]);  // exactly as large as it must be
    const bool none = vector.accountId.empty();
    for (const bool null : {false, none}) {  // null counts as empty
      EXPECT_EQ(
          0, VARNKIVOGenerateToken(null ? nullptr : vector.accountId.c_str(), null ? nullptr : vector.password.c_str(),
                                   serial.data(), serial.size() + 1, token.get(), 33));
      EXPECT_STREQ(vector.token, token.get());
      EXPECT_EQ(vector.serial, serial);
    }
  }
  EXPECT_TRUE(device.Calls("VLIBGetSerialNumber").empty());
}

TEST(DeviceToken, AnEmptySerialIsReadAndTextsAreCutToTheirBuffers) {
  FakePlatform device;
  char serial[36] = "", token[33], few[10];
  EXPECT_EQ(0, VARNKIVOGenerateToken("", "", serial, sizeof serial, token, sizeof token));
  EXPECT_STREQ("2040VKN000001", serial);
  EXPECT_STREQ("e05e64f82e307a2d1e6d118caf7935d0", token);
  EXPECT_EQ(0, VARNKIVOGenerateToken("", "", serial, sizeof serial, few, sizeof few));
  EXPECT_STREQ("e05e64f82", few);
  char exact[14], shorter[5] = "....";
  EXPECT_EQ(0, VARNKIVOGetSerialNumber(exact, sizeof exact));
  EXPECT_STREQ("2040VKN000001", exact);
  EXPECT_EQ(0, VARNKIVOGetSerialNumber(shorter, sizeof shorter));
  EXPECT_STREQ("2040", shorter);
}

TEST(DeviceToken, EachFailureIsLoggedAndLeavesTheSlotAlone) {
  const std::string failed = "GenerateToken Failed, err=[0x";
  const struct {
    const char* call;        // fails
    const char* configured;  // serial number of the device
    const char* given;       // null: no buffer
    std::string digest, log;
  } cases[] = {
      {"VLIBGetSerialNumber", "S1", "", "", "Failed to get serial number from flash. [0x0700 fake.c:1]"},
      {"", "-S1", "", "", "Serial number is invalid: [-S1][0x"},
      {"", "S1", "-S1", "", "Serial number is invalid: [-S1][0x"},
      {"", "S1", "_", "", "Serial number is invalid: [_][0x"},
      {"", "S1", nullptr, "", "Wrong parameters"},
      {"VLIBCStrCat", "S1", "S1", "", "Fail to concat string"},
      {"", "S1", "S1", "MD5_Init", failed},
      {"", "S1", "S1", "MD5_Final", failed},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.log + row.digest);
    FakePlatform device;
    device.MustNotLog("canary-password");
    WriteFile("/usr/varn/etc/host.conf", std::string("serial=\"") + row.configured + "\"\n");
    if (*row.call) device.FailNext(row.call);
    gFailingDigest = row.digest;
    char serial[36] = {}, token[33] = "untouched";
    if (row.given) std::snprintf(serial, sizeof serial, "%s", row.given);
    VARNKIVOErrSet(99);
    EXPECT_EQ(-1, VARNKIVOGenerateToken("id", "canary-password", row.given ? serial : nullptr, 36, token, 33));
    gFailingDigest.clear();
    EXPECT_EQ(99, VARNKIVOErrGet());
    EXPECT_EQ(0u, device.LastLine().find("kivo_token_generation " + row.log)) << device.LastLine();
    EXPECT_EQ(!row.digest.empty(), device.HasLog("Failed to get md5 string from \"S1idcanary"));
    EXPECT_STREQ("untouched", token);
  }
}

TEST(Md5String, FillsItsBufferAndNoMore) {
  for (const int size : {32, 33, 40}) {
    std::string hex(static_cast<std::size_t>(size < 33 ? 33 : size), '!');  // a NUL follows also where there are 32
    const std::size_t room = hex.size();
    EXPECT_EQ(0, KivoGetMd5String("\xff\x80\x01", hex.data(), size));
    EXPECT_EQ("984df5f691901764666f4ed5d1e4fab1" + std::string(room - 32, '\0'), hex) << size;
  }
  char hex[33] = "untouched";
  for (const int size : {31, 0, -1}) EXPECT_EQ(-1, KivoGetMd5String("abc", hex, size));
  EXPECT_TRUE(KivoGetMd5String(nullptr, hex, 33) == -1 && KivoGetMd5String("abc", nullptr, 33) == -1);
  EXPECT_STREQ("untouched", hex);
}

}  // namespace
