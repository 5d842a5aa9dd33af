// Writes a fixed-size record back into the account record, key by key. A failing key stops it; those before stay.
// A record that was never queried (time 0 or below) carries only who the account is: the stored profile is kept.
#include "internal/guard.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "kivo_exception.h"
#include "user.h"
#include "varnkivo.h"

#include <cstring>
#include <string>

namespace {

constexpr const char* kSource = "kivo_config_set";
constexpr int kLine = 41;

/// A field's text, which may lack its NUL.
template <std::size_t Size>
std::string Text(const char (&field)[Size]) {
  return std::string(field, strnlen(field, Size));
}

void Store(const _tag_kivo_INFO_& info) {
  const varnkivo::User user;
  user.SetEmail(Text(info.email));
  user.SetAuthKey(Text(info.authKey));
  user.SetUserId(Text(info.userId));
  if (info.lastQueryTime <= 0) return;
  user.SetName(Text(info.name));
  user.SetCountry(Text(info.country));
  user.SetTimezone(Text(info.timezone));
  user.SetNotifyLanguage(Text(info.notifyLanguage));
  user.SetIsActivated(info.activated != 0);
  user.SetIsDisabled(info.disabled != 0);
  user.SetIsEnews(info.enews != 0);
  user.SetIsEnewsLocalPromotion(info.enewsLocalPromotion != 0);
  user.SetIsCriticalRelease(info.criticalRelease != 0);
  user.SetCriticalVersionList(Text(info.criticalVersionList));
  user.SetCriticalVersionDomain(Text(info.criticalVersionDomain));
  user.SetLastQueryTime(info.lastQueryTime);
}

}  // namespace

int VARNKIVOAccountSet(const _tag_kivo_INFO_* info) {
  using namespace varnkivo;
  return Guarded(kSource, [&] {
    if (!info) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    try {
      Store(*info);
    } catch (const KivoException& error) {
      LogError({kSource, kLine}, "Failed on VARNKIVOAccountSet: %s", Redact(error.what()).c_str());
      VARNKIVOErrSet(error.GetCode());
      return -1;
    }
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    return 0;
  });
}
