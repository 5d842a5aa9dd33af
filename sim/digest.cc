// SHA-256 and the URL-safe Base64.
#include "sim/digest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <stdexcept>

namespace kivosim {

std::string Base64Url(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  const auto* input = reinterpret_cast<const unsigned char*>(bytes.data());
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), input, static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  text.erase(std::min(text.find('='), text.size()));
  std::replace(text.begin(), text.end(), '+', '-');
  std::replace(text.begin(), text.end(), '/', '_');
  return text;
}

std::string Sha256(const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 is not available");
  return {reinterpret_cast<const char*>(digest), size};
}

std::string S256(const std::string& verifier) { return Base64Url(Sha256(verifier)); }

std::string HashPrefix(const std::string& secret) {
  std::string hex;
  for (const char byte : Sha256(secret).substr(0, 6)) {
    hex += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
    hex += "0123456789abcdef"[static_cast<unsigned char>(byte) & 15];
  }
  return hex;
}

}  // namespace kivosim
