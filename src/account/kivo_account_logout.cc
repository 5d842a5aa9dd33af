// Signs the device out of the account centre. Touches the account record, the report job and every token file.
// What goes, and in which order, is decided by the account PKCE service alone.
#include "account_pkce_service.h"
#include "internal/guard.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "kivo_exception.h"
#include "varnkivo.h"

namespace {

constexpr const char* kSource = "kivo_account_logout";
constexpr int kFailureLine = 28;

}  // namespace

int VARNKIVOAccountLogout(bool remote) {
  return varnkivo::Guarded(kSource, [&] {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    try {
      const varnkivo::AccountPkceService service;
      if (remote)
        service.Logout();
      else
        service.LogoutLocal();
      return 0;
    } catch (const varnkivo::KivoException& error) {
      VARNKIVOErrSet(error.GetCode());
      varnkivo::LogError({kSource, kFailureLine}, "Failed to logout: %s", varnkivo::Redact(error.what()).c_str());
      return -1;
    }
  });
}
