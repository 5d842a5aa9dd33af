// Builds the query text of the sender and logs under its name. Touches nothing but the serial number.
// The order is part of the interface: serial, token, account, then the parameters as the hash enumerates them.
#include "kivo_https_query.h"

#include "internal/log.h"
#include "internal/redact.h"
#include "varnkivo.h"

#include <string.h>

#include <cstdio>
#include <cstdlib>

namespace varnkivo {
namespace {

constexpr int kKeyListCapacity = 512;
constexpr std::size_t kSerialSize = 256, kTokenSize = 33;

struct CurlFree {
  void operator()(char* text) const noexcept { curl_free(text); }
};

List ListKeys(const VLIBSzHash* params) {
  List keys(VLIBCSzListAlloc(kKeyListCapacity));
  if (!keys) {
    LogError(kSenderSource, "out of memory, ERR=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
             VLIBCErrorGetLine());
    return nullptr;
  }
  if (params && VLIBCSzHashEnumKey(params, keys.get()) < 0) {
    LogError(kSenderSource, "no key in the hash, ERR=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
             VLIBCErrorGetLine());
    return nullptr;
  }
  return keys;
}

}  // namespace

QueryText::QueryText() : text_(static_cast<char*>(std::calloc(1, static_cast<std::size_t>(size_)))) {}

QueryText::~QueryText() {
  if (text_) explicit_bzero(text_, static_cast<std::size_t>(size_));
  std::free(text_);
}

bool QueryText::Concat(const char* text) {
  if (VLIBCStrCat(&text_, &size_, text) >= 0) return true;
  LogError(kSenderSource, "Fail to concat string");
  return false;
}

bool QueryText::Append(CURL* curl, const char* name, const char* value) {
  const std::unique_ptr<char, CurlFree> escaped(curl_easy_escape(curl, value, static_cast<int>(strlen(value))));
  if (!escaped) {
    LogError(kSenderSource, "URL encoding failed: %s", RedactValue(name, value).c_str());
    return false;
  }
  const bool done = (*text_ == '\0' || Concat("&")) && Concat(name) && Concat("=") && Concat(escaped.get());
  explicit_bzero(escaped.get(), strlen(escaped.get()));
  return done;
}

bool AppendParameters(QueryText& query, CURL* curl, const std::string& accountId, const std::string& accountPassword,
                      const VLIBSzHash* params) {
  char serial[kSerialSize] = {}, token[kTokenSize] = {};
  const char* givenSerial = params ? VLIBCSzHashGetValue(params, "lu_sn") : nullptr;
  if (givenSerial) std::snprintf(serial, sizeof serial, "%s", givenSerial);
  if (VARNKIVOGenerateToken(accountId.c_str(), accountPassword.c_str(), serial, sizeof serial, token, sizeof token) < 0)
    return false;
  const List keys = ListKeys(params);
  if (!keys) return false;
  if (!query.Append(curl, "lu_sn", serial) || !query.Append(curl, "lu_token", token)) return false;
  if (!accountId.empty() && !query.Append(curl, "kivoID", accountId.c_str())) return false;
  if (!accountPassword.empty() && !query.Append(curl, "kivoPW", accountPassword.c_str())) return false;
  for (int i = 0; i < VLIBCSzListCount(keys.get()); ++i) {
    const char* name = VLIBCSzListGet(keys.get(), i);
    const char* value = name ? VLIBCSzHashGetValue(params, name) : nullptr;
    if (value && !query.Append(curl, name, value)) return false;
  }
  return true;
}

}  // namespace varnkivo
