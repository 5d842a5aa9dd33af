// Device tokens against values computed by another program (a dozen lines of Python around hashlib), with the shortest
// and the longest stretching and with texts longer than a round may take.
#include <gtest/gtest.h>

#include "sim/device_token.h"

namespace kivosim {
namespace {

TEST(SimDeviceToken, AgreesWithValuesComputedElsewhere) {
  const struct {
    std::string serial, accountId, password;
    const char* token;
  } vectors[] = {
      {"202135KVN0001", "", "", "2461bb6df164440b8eebc1eb29ec23ea"},  // one round
      {"202146KVN0001", "", "", "f9cc93a3d453db1800c1c82baba54c43"},  // sixteen rounds
      {"2130KVN004211", "", "", "430450fef2cf32aad9ad39f451c755a5"},
      {"2130KVN004211", "1001", "correct horse", "a8723733021f7fcc7944371378bc33d5"},
      {"2130KVN004211", "a@b.c", "p\xc3\xa4 \xc3\x9f", "12f579b0f5581bf255c09a4f10b543d4"},
      {"S", std::string(4000, 'i'), std::string(4000, 'p'), "26cc57f415f393dbc9530ac5c4d0b0f6"},
      {"S", std::string(4050, 'i'), std::string(60, 'p'), "cc2a1405e42b8e25fb7f6bb3a8d6fdca"},
  };
  for (const auto& vector : vectors)
    EXPECT_EQ(vector.token, DeviceToken(vector.serial, vector.accountId, vector.password));
}

}  // namespace
}  // namespace kivosim
