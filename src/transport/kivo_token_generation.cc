// The device token that authenticates every legacy request, and the MD5 helper. Touches nothing but the serial number.
// The token proves knowledge of serial, account and password by iterated MD5; the server computes the same text, so no
// limit below (4095, 4128) may change.
#define OPENSSL_API_COMPAT 0x10101000L  // MD5_Init and its siblings; the one file that calls them

#include <openssl/md5.h>
#include <string.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "internal/guard.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "varn/platform.h"
#include "varnkivo.h"

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

bool Digest(const std::string& text, std::string& hex) {
  char buffer[kHexSize];
  if (KivoGetMd5String(text.c_str(), buffer, sizeof buffer) < 0) {
    LogError(kSource, "Failed to get md5 string from \"%s\".", Cut10(text).c_str());
    return false;
  }
  hex = buffer;
  return true;
}

int HexDigitValue(char digit) { return digit <= '9' ? digit - '0' : digit - 'a' + 10; }

bool Stretch(const char* seed, std::string& token) {
  if (!seed) {
    LogError(kSource, "Parameter error");
    return false;
  }
  std::string digest;
  if (!Digest(seed, digest)) return false;
  std::string current = std::string(seed).substr(0, kMostCurrent);
  for (int rounds = HexDigitValue(digest[0]) + 1; rounds > 0; --rounds) {
    std::string hash, next;
    if (!Digest(current, hash) || !Digest((current + hash).substr(0, kMostJoined), next)) return false;
    explicit_bzero(current.data(), current.size());
    current = next;
  }
  token = current;
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
  std::string text;
  if (!Stretch(seed.Text(), text)) {
    LogError(kSource, "GenerateToken Failed, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
             VLIBCErrorGetLine());
    return -1;
  }
  std::snprintf(token, tokenSize, "%s", text.c_str());
  return 0;
}

}  // namespace
}  // namespace varnkivo

int KivoGetMd5String(const char* text, char* hex, int size) {
  if (!text || !hex || size < 32) return -1;
  memset(hex, 0, static_cast<std::size_t>(size));
  MD5_CTX context;
  unsigned char digest[MD5_DIGEST_LENGTH];
  if (MD5_Init(&context) < 1 || MD5_Update(&context, text, strlen(text)) < 1 || MD5_Final(digest, &context) < 1)
    return -1;
  for (int i = 0; i < MD5_DIGEST_LENGTH; ++i)
    std::snprintf(hex + 2 * i, 3, "%02x", digest[i]);  // the last NUL: byte 32
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
      return -1;
    }
    return varnkivo::GenerateToken(accountId, password, serial, serialSize, token, tokenSize);
  });
}
