// Copies the account record, or the credentials of the shop in it, into the fixed-size record of the exported
// functions. Reads the record only.
// "Signed in" means an auth key and a user id here, not an e-mail as for User::Exists.
#include "internal/account_files.h"
#include "internal/log.h"
#include "internal/operation.h"
#include "internal/privilege_bracket.h"
#include "kivo_exception.h"
#include "user_impl.h"
#include "varnkivo.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>

namespace {

constexpr const char* kSource = "kivo_config_get";

static_assert(sizeof(_tag_kivo_INFO_) == 4 * 4096 + 1024 + 3 * 256 + 2 * 1024 + 6 * 4 &&
                  offsetof(_tag_kivo_INFO_, activated) == sizeof(_tag_kivo_INFO_) - 6 * 4,
              "other programs share this layout");

template <std::size_t Size>
void Copy(char (&field)[Size], const std::string& text) {
  std::snprintf(field, Size, "%s", text.c_str());
}

void Fill(_tag_kivo_INFO_& info) {
  const auto user = varnkivo::UserImpl::Snapshot();
  const std::string authKey = user.GetAuthKey(), userId = user.GetUserId();
  if (authKey.empty() || userId.empty()) throw varnkivo::KivoException(KIVO_ERR_NO_ACCOUNT);
  Copy(info.authKey, authKey);
  Copy(info.userId, userId);
  Copy(info.email, user.GetEmail());
  Copy(info.name, user.GetName());
  Copy(info.country, user.GetCountry());
  Copy(info.timezone, user.GetTimezone());
  Copy(info.notifyLanguage, user.GetNotifyLanguage());
  info.lastQueryTime = static_cast<int>(user.GetLastQueryTime());
  info.activated = user.GetIsActivated();
  info.disabled = user.GetIsDisabled();
  info.enews = user.GetIsEnews();
  info.criticalRelease = user.GetIsCriticalRelease();
  info.enewsLocalPromotion = user.GetIsEnewsLocalPromotion();
  Copy(info.criticalVersionList, user.GetCriticalVersionList());
  Copy(info.criticalVersionDomain, user.GetCriticalVersionDomain());
}

/// Throws KivoException where there are none.
varnkivo::Hash ReadCredentials() {
  using namespace varnkivo;
  Hash values(VLIBCSzHashAlloc(0));
  if (!values) throw std::bad_alloc();
  const PrivilegeBracket bracket(kSource);
  if (!bracket.Entered()) {
    LogError(kSource, "Change permission failed");
    throw KivoException(KIVO_ERR_SYSTEM);
  }
  if (VLIBCFileGetKeys(kRecordFile, values.get(), "=") >= 0) return values;
  LogError(kSource, "VLIBCFileGetKeys() failed!! szFile=[%s], varnerr=[0x%04X]", kRecordFile, VLIBCErrGet());
  throw KivoException(KIVO_ERR_NO_ACCOUNT);
}

const char* Credential(const varnkivo::Hash& values, const char* key, int line = __builtin_LINE()) {
  const char* const value = VLIBCSzHashGetValue(values.get(), key);
  if (value && *value) return value;
  varnkivo::LogError({kSource, line}, "key [%s] not found in %s, errno=%s/%d\n", key, varnkivo::kRecordFile,
                     std::strerror(errno), errno);
  throw varnkivo::KivoException(KIVO_ERR_NO_ACCOUNT);
}

/// Runs what fills a record; its exceptions are codes in the slot and nothing else.
template <class Fill>
int FillRecord(_tag_kivo_INFO_* info, Fill fill) {
  if (!info) {
    VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
    return -1;
  }
  try {
    varnkivo::AccountCopy filled(*info);
    fill(filled);
    *info = filled;                                 // all of it or nothing
  } catch (const varnkivo::KivoException& error) {  // nobody signed in is no fault worth a log line
    VARNKIVOErrSet(error.GetCode());
    return -1;
  }
  return 0;
}

}  // namespace

int VARNKIVOAccountGet(_tag_kivo_INFO_* info) {
  return varnkivo::Guarded(kSource, [&] {
    const int result = FillRecord(info, Fill);
    if (result == 0) VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    return result;
  });
}

int VARNPaymentKivoAccountGet(_tag_kivo_INFO_* info) {
  return varnkivo::Guarded(kSource, [&] {
    return FillRecord(info, [](_tag_kivo_INFO_& filled) {
      if (access(varnkivo::kRecordFile, F_OK) != 0) throw varnkivo::KivoException(KIVO_ERR_NO_ACCOUNT);
      const varnkivo::Hash values = ReadCredentials();
      Copy(filled.email, Credential(values, "kivoID"));
      Copy(filled.password, Credential(values, "kivoPW"));
    });
  });
}
