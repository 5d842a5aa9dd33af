// Digests and their texts, by OpenSSL. Pure.
#pragma once

#include <string>

namespace kivosim {

std::string Base64Url(const std::string& bytes);  ///< without padding
std::string Sha256(const std::string& bytes);     ///< 32 bytes
/// The challenge that belongs to a code verifier by the method S256: 43 characters.
std::string S256(const std::string& verifier);
std::string Md5Hex(const std::string& text);  ///< 32 hexadecimal digits, lower case
/// The first 12 hexadecimal digits of the SHA-256: enough to tell tokens apart, too little to use them.
std::string HashPrefix(const std::string& secret);

}  // namespace kivosim
