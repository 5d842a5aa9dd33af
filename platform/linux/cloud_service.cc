// The device's identity towards the cloud: an API key of its own, and the token that proves knowledge of the serial.
// State: the key file, 0600 and the account service's. A key is made under the file's lock, so that two processes that
// both find none end with the same one.
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "device_facts.h"
#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

const char* const kKeyFile = "/usr/varn/etc/varnholt-account/private/api_key";
constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kSeedLimit = 4095, kRoundLimit = 4128;  // characters that take part in the token
enum CloudError { kCloudNone = 0, kCloudOther = 2, kCloudNoSerial = 9 };

thread_local int gCloudError = kCloudNone;

/// Runs one call of this group and keeps what it ended with; the reason is the platform error just recorded.
template <class Body>
int CloudCall(Body body) {
  const int result = Guarded(body);
  gCloudError = result >= 0 ? kCloudNone : VLIBCErrGet() == VLIB_ERR_NO_SERIAL ? kCloudNoSerial : kCloudOther;
  return result;
}

bool MayUseKey() {
  const uid_t uid = geteuid();
  return uid == 0 || uid == kAccountUid || Fail(VLIB_ERR_ACCESS) == 0;
}

std::string Hex(const unsigned char* bytes, std::size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text.append({kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]});
  return text;
}

/// The stored key. Empty where there is no usable one: a damaged file is as good as none.
bool ReadKey(std::string* key) {
  if (!ReadFile(kKeyFile, Links::kRefuse, key)) {
    key->clear();
    return errno == ENOENT;
  }
  if (!key->empty() && key->back() == '\n') key->pop_back();
  const bool printable = std::all_of(key->begin(), key->end(), [](char c) { return c > 0x20 && c < 0x7f; });
  if (!printable || key->size() >= VARN_CLOUD_API_KEY_SIZE) key->clear();
  return true;
}

/// The caller holds the file's lock.
bool MakeKey(std::string* key) {
  if (SerialNumber().empty()) return false;  // a key belongs to a device that has a name
  unsigned char bytes[kKeyBytes];
  if (RAND_bytes(bytes, sizeof bytes) != 1) return Fail(VLIB_ERR_CRYPTO) == 0;
  *key = Hex(bytes, sizeof bytes);
  const std::string temporary = HiddenSibling(kKeyFile, ".new");
  unlink(temporary.c_str());
  return ReplaceFile(kKeyFile, temporary, *key + "\n", {0600, kAccountUid, kAccountGid});
}

int GetKey(char* out, bool create, bool replace) {
  SiblingLock lock;
  std::string key;
  if (!MayUseKey() || (!replace && !ReadKey(&key))) return -1;
  if (key.empty() && !create) return Fail(VLIB_ERR_NOT_FOUND);
  if (key.empty()) {
    if (!lock.Acquire(kKeyFile) || (!replace && !ReadKey(&key))) return -1;  // another process may have made one
    if (key.empty() && !MakeKey(&key)) return -1;
  }
  CopyOut(key, out, VARN_CLOUD_API_KEY_SIZE);
  return 0;
}

int DiscardKey() {
  SiblingLock lock;
  if (!MayUseKey() || !lock.Acquire(kKeyFile)) return -1;
  return unlink(kKeyFile) == 0 || errno == ENOENT ? 0 : FailErrno(VLIB_ERR_WRITE);
}

bool Md5Hex(std::string_view text, std::string* hex) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_md5(), nullptr) != 1) {
    return Fail(VLIB_ERR_CRYPTO) == 0;
  }
  *hex = Hex(digest, length);
  return true;
}

/// 1 to 16 rounds, as the first digit of the seed's digest says; each hashes the text followed by its own digest.
bool Stretch(std::string_view seed, std::string* token) {
  std::string digest;
  if (!Md5Hex(seed, &digest)) return false;
  const int rounds = (digest[0] <= '9' ? digest[0] - '0' : digest[0] - 'a' + 10) + 1;
  std::string current(seed.substr(0, kSeedLimit));
  for (int round = 0; round < rounds; ++round) {
    if (!Md5Hex(current, &digest)) return false;
    if (!Md5Hex((current + digest).substr(0, kRoundLimit), &current)) return false;
  }
  *token = current;
  return true;
}

}  // namespace
}  // namespace varnplatform

using namespace varnplatform;

int VARNCloudServiceGetApiKey(char* key, int create) {
  return CloudCall([&] {
    if (!key) return Fail(VLIB_ERR_BAD_PARAMETER);
    key[0] = '\0';
    return GetKey(key, create != 0, false);
  });
}

int VARNCloudServiceRegisterApiKey(char* key) {
  return CloudCall([&] {
    if (!key) return Fail(VLIB_ERR_BAD_PARAMETER);
    key[0] = '\0';
    return GetKey(key, true, true);
  });
}

int VARNCloudServiceActionHandler(int action) {
  return CloudCall([&] { return action == 2 ? DiscardKey() : Fail(VLIB_ERR_BAD_PARAMETER); });
}

int VARNCloudServiceGetErrorCode(void) { return gCloudError; }

int VARNCloudServiceLutokenGenerateToken(const char* serial, char* token, int size) {
  return CloudCall([&] {
    if (token && size > 0) token[0] = '\0';
    if (!serial || !*serial || !token || size < 33) return Fail(VLIB_ERR_BAD_PARAMETER);
    std::string text;
    if (!Stretch(serial, &text)) return -1;
    CopyOut(text, token, size);
    return 0;
  });
}
