// Device tokens: MD5 stretched over 1 to 16 rounds, the count being the first digit of the seed's digest plus one.
// Devices work in fixed buffers, so the text of a round is cut at 4095 bytes and never longer than 4128 with its
// digest.
#include "sim/device_token.h"

#include "sim/digest.h"

namespace kivosim {

std::string DeviceToken(const std::string& serial, const std::string& accountId, const std::string& accountPassword) {
  const std::string seed = serial + accountId + accountPassword;
  const char digit = Md5Hex(seed)[0];
  const int rounds = (digit <= '9' ? digit - '0' : digit - 'a' + 10) + 1;
  std::string current = seed.substr(0, 4095);
  for (int round = 0; round < rounds; ++round) current = Md5Hex((current + Md5Hex(current)).substr(0, 4128));
  return current;
}

}  // namespace kivosim
