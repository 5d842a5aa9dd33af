// Device tokens: MD5 stretched over 1 to 16 rounds, the count being the first digit of the seed's digest plus one.
// Devices work in fixed buffers, so the text of a round is cut at 4095 bytes and never longer than 4128 with its
// digest.
#include "sim/device_token.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace kivosim {
namespace {

std::string Md5Hex(const std::string& text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(text.data(), text.size(), digest, &size, EVP_md5(), nullptr) != 1)
    throw std::runtime_error("MD5 is not available");
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    hex += "0123456789abcdef"[digest[i] >> 4];
    hex += "0123456789abcdef"[digest[i] & 15];
  }
  return hex;
}

}  // namespace

std::string DeviceToken(const std::string& serial, const std::string& accountId, const std::string& accountPassword) {
  const std::string seed = serial + accountId + accountPassword;
  const char digit = Md5Hex(seed)[0];
  const int rounds = (digit <= '9' ? digit - '0' : digit - 'a' + 10) + 1;
  std::string current = seed.substr(0, 4095);
  for (int round = 0; round < rounds; ++round) current = Md5Hex((current + Md5Hex(current)).substr(0, 4128));
  return current;
}

}  // namespace kivosim
