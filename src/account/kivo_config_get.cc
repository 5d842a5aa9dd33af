// Copies the account record into the fixed-size record of the exported functions. Reads the record only.
// "Signed in" means an auth key and a user id here, not an e-mail as for User::Exists.
#include "internal/guard.h"
#include "kivo_exception.h"
#include "user_impl.h"
#include "varnkivo.h"

#include <cstddef>
#include <cstdio>

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

}  // namespace

int VARNKIVOAccountGet(_tag_kivo_INFO_* info) {
  return varnkivo::Guarded(kSource, [&] {
    if (!info) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    try {
      _tag_kivo_INFO_ filled = *info;
      Fill(filled);
      *info = filled;                                 // all of it or nothing
    } catch (const varnkivo::KivoException& error) {  // nobody signed in is no fault worth a log line
      VARNKIVOErrSet(error.GetCode());
      return -1;
    }
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    return 0;
  });
}
