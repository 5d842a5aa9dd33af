// The device token that authenticates every legacy request, and the MD5 helper. Touches nothing but the serial number.
// The token proves knowledge of serial, account and password by iterated MD5; the server computes the same text, so no
// limit below (4095, 4128) may change.
#define OPENSSL_API_COMPAT 0x10101000L  // MD5_Init and its siblings; the one file that calls them

#include "internal/guard.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "internal/wiped.h"
#include "varn/platform.h"
#include "varnkivo.h"

#include <openssl/md5.h>

#include <string.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_token_generation";
constexpr int kHexSize = 33;                // 32 digits and a NUL
constexpr std::size_t kMostCurrent = 4095;  // characters of the text that is hashed first in a round
constexpr std::size_t kMostJoined = 4128;   // characters of that text and its digest

bool IsAsciiLetterOrDigit(char c) { return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool CheckSerial(const char* serial) {
  if (IsAsciiLetterOrDigit(*serial)) return true;
  LogError(kSource, "Serial number is invalid: [%s][0x%04X %s:%d]", Redact(serial).c_str(), VLIBCErrGet(),
           VLIBCErrorGetFile(), VLIBCErrorGetLine());
  return false;
}

/// A growable text of the platform, wiped when dropped: it holds the password.
class Seed {
 public:
  Seed() : text_(static_cast<char*>(std::calloc(1, 1024))) {}
  Seed(const Seed&) = delete;
  Seed& operator=(const Seed&) = delete;
  ~Seed() {
    if (text_) explicit_bzero(text_, static_cast<std::size_t>(size_));
    std::free(text_);
  }
  bool Append(const char* text) { return !text || VLIBCStrCat(&text_, &size_, text) >= 0; }
  const char* Text() const { return text_; }

 private:
  int size_ = 1024;
  char* text_;
};

struct Hex {
  char digits[kHexSize];
};

bool Digest(const char* text, Hex& hex) {
  if (KivoGetMd5String(text, hex.digits, sizeof hex.digits) >= 0) return true;
  LogError(kSource, "Failed to get md5 string from \"%s\".", Cut10(text).c_str());
  return false;
}

int HexDigitValue(char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; }

bool Stretch(const char* seed, Hex& token) {
  if (!seed) {
    LogError(kSource, "Parameter error");
    return false;
  }
  Hex digest;
  if (!Digest(seed, digest)) return false;
  Wiped current;
  current.reserve(kMostJoined);
  current.assign(seed, strnlen(seed, kMostCurrent));
  for (int rounds = HexDigitValue(digest.digits[0]) + 1; rounds > 0; --rounds) {
    Hex hash;
    if (!Digest(current.c_str(), hash)) return false;
    current.append(hash.digits).resize(std::min(current.size(), kMostJoined));
    if (!Digest(current.c_str(), token)) return false;
    current.assign(token.digits);
  }
  return true;
}

int GenerateToken(const char* accountId, const char* password, char* serial, std::size_t serialSize, char* token,
                  std::size_t tokenSize) {
  if (!serial || !*serial) {
    if (VARNKIVOGetSerialNumber(serial, serialSize) < 0) return -1;
  } else if (!CheckSerial(serial)) {
    return -1;
  }
  Seed seed;
  if (!seed.Text()) {
    LogError(kSource, "Fail to allocate");
    return -1;
  }
  if (!seed.Append(serial) || !seed.Append(accountId) || !seed.Append(password)) {
    LogError(kSource, "Fail to concat string");
    return -1;
  }
  Hex stretched;
  if (!Stretch(seed.Text(), stretched)) {
    LogError(kSource, "GenerateToken Failed, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
             VLIBCErrorGetLine());
    return -1;
  }
  std::snprintf(token, tokenSize, "%s", stretched.digits);
  return 0;
}

}  // namespace
}  // namespace varnkivo

int KivoGetMd5String(const char* text, char* hex, int size) {
  if (!hex) VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
  if (!text || !hex || size < 32) return -1;
  memset(hex, 0, static_cast<std::size_t>(size));
  MD5_CTX context;
  unsigned char digest[MD5_DIGEST_LENGTH];
  if (MD5_Init(&context) < 1 || MD5_Update(&context, text, strlen(text)) < 1 || MD5_Final(digest, &context) < 1)
    return -1;
  static constexpr char kDigits[] = "0123456789abcdef";
  for (const unsigned char byte : digest) {
    *hex++ = kDigits[byte >> 4];
    *hex++ = kDigits[byte & 15];
  }
  *hex = '\0';  // byte 32
  return 0;
}

int VARNKIVOGetSerialNumber(char* serial, size_t size) {
  using namespace varnkivo;
  return Guarded(kSource, [&] {
    if (!serial) {
      LogError(kSource, "Wrong parameters");
      return -1;
    }
    char value[36] = {};
    if (VLIBGetSerialNumber(value, sizeof value) < 0) {
      LogError(kSource, "Failed to get serial number from flash. [0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
               VLIBCErrorGetLine());
      return -1;
    }
    std::snprintf(serial, size, "%s", value);
    return CheckSerial(value) ? 0 : -1;
  });
}

int VARNKIVOGenerateToken(const char* accountId, const char* password, char* serial, size_t serialSize, char* token,
                          size_t tokenSize) {
  return varnkivo::Guarded(varnkivo::kSource, [&] {
    if (!token) {
      varnkivo::LogError(varnkivo::kSource, "Wrong parameters");
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    return varnkivo::GenerateToken(accountId, password, serial, serialSize, token, tokenSize);
  });
}
