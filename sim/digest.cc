// SHA-256, MD5 and the URL-safe Base64.
#include "sim/digest.h"

#include <openssl/evp.h>

#include <algorithm>
#include <stdexcept>

namespace kivosim {
namespace {

std::string Digest(const EVP_MD* method, const std::string& bytes) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, method, nullptr) != 1)
    throw std::runtime_error("a digest is not available");
  return {reinterpret_cast<const char*>(digest), size};
}

std::string Hex(const std::string& bytes) {
  std::string hex;
  for (const char byte : bytes) {
    hex += "0123456789abcdef"[static_cast<unsigned char>(byte) >> 4];
    hex += "0123456789abcdef"[static_cast<unsigned char>(byte) & 15];
  }
  return hex;
}

}  // namespace

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

std::string Sha256(const std::string& bytes) { return Digest(EVP_sha256(), bytes); }

std::string Md5Hex(const std::string& text) { return Hex(Digest(EVP_md5(), text)); }

std::string S256(const std::string& verifier) { return Base64Url(Sha256(verifier)); }

std::string HashPrefix(const std::string& secret) { return Hex(Sha256(secret).substr(0, 6)); }

}  // namespace kivosim
