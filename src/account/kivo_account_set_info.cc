// Changes profile, password or mail preferences of the signed-in account at the account centre. Touches nothing on the
// device itself; the record learns of the change from the next account query, and so at once after a new password.
// Only what is given is sent, and an e-mail or a new password only with the current one.
#include "internal/log.h"
#include "internal/operation.h"
#include "internal/redact.h"
#include "varnkivo.h"

#include <json/json.h>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_account_set_info";
constexpr int kHashCapacity = 1024;

/// Tells the device's administrators. The password is changed already, so nothing here is a failure of the operation.
void NotifyPasswordChanged() {
  Json::Value account(Json::objectValue);
  if (VARNKIVOAccountQueryInfo(account, true, true) < 0) {
    LogError(kSource, "VARNKIVOAccountQueryInfo failed, code=%u", static_cast<unsigned int>(VARNKIVOErrGet()));
    return;
  }
  const Hash substitutions(VLIBCSzHashAlloc(kHashCapacity));
  if (!substitutions)
    LogError(kSource, "Failed to alloc notification hash, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
             VLIBCErrorGetLine());
  else if (VLIBCSzHashSetValue(substitutions.get(), "%KIVO_ACCOUNT%", account["email"].asCString()) < 0)
    LogError(kSource, "Cant set kivo account");
  else if (VARNSysNotifySendNotifiction("KivoPasswordChanged", substitutions.get()) < 0)
    LogError(kSource, "Send notification failed");
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountSetInfo(const char* fullName, const char* email, const char* password, const char* newPassword,
                           const char* country, const char* notifyLanguage, const char* timeZone, int enews,
                           int criticalRelease, int enewsLocalPromotion, const char* criticalVersionList) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    AccountCopy account;
    if (VARNKIVOAccountGet(&account) < 0) op.Stop(KIVO_ERR_NO_ACCOUNT, "VARNKIVOAccountGet failed");
    const ServerConfig server = op.ReadServerConfig();
    const std::string serial = op.SerialNumber();
    Request request(op, server.account, "device/api/user/update");
    request.Set("id", account.userId).Set("auth_key", account.authKey).Set("serial_no", serial);
    if (fullName) request.Set("full_name", fullName);
    if (password) {
      request.Set("passwd", password);
      if (email) request.Set("email", email);
      if (newPassword) request.Set("passwd_new", newPassword).Set("passwd_confirmation", newPassword);
    }
    if (country) request.Set("country", country);
    if (notifyLanguage) request.Set("notify_lang", notifyLanguage);
    if (timeZone) request.Set("timezone", timeZone);
    if (enews >= 0) request.SetBool("enews", enews > 0);
    if (criticalRelease >= 0) request.SetBool("critical_release", criticalRelease > 0);
    if (enewsLocalPromotion >= 0) request.SetBool("enews_local_promotion", enewsLocalPromotion > 0);
    if (criticalVersionList) request.Set("critical_version_list", criticalVersionList);
    const char* body = request.Send();
    if (MapLibKivoCenterErrorCode(body) != KIVO_ERR_SUCCESS)
      op.Stop(kKeepCode, "Failed to update account:%s, resp=%s", Redact(account.userId).c_str(), Redact(body).c_str());
    if (password && newPassword) NotifyPasswordChanged();
    return 0;
  });
}
