// Random text by way of OpenSSL, whose generator is safe to use from any thread.
#include "sim/random_text.h"

#include <openssl/rand.h>

#include <stdexcept>
#include <vector>

namespace kivosim {

std::string RandomText(std::size_t length) {
  std::vector<unsigned char> bytes(length);
  if (RAND_bytes(bytes.data(), static_cast<int>(length)) != 1) throw std::runtime_error("no random bytes");
  std::string text;
  for (const unsigned char byte : bytes) text += "0123456789abcdef"[byte & 15];
  return text;
}

}  // namespace kivosim
