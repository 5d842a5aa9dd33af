// Tells the account centre that the signed-in device still exists, and learns whether the account does. The scheduled
// job runs it. May move the job's schedule, renew the access token, or sign the device out where the server refuses it.
// There is no retry: the next run of the job is the retry. What follows an accepted report never makes it a failure.
#include "account_pkce_service.h"
#include "account_service.h"
#include "internal/json_utils.h"
#include "internal/log.h"
#include "internal/operation.h"
#include "internal/redact.h"
#include "lum_service.h"
#include "server_info.h"
#include "user.h"
#include "varnkivo.h"

#include <json/json.h>

#include <cstring>
#include <exception>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_report_info";

/// Runs a step that decides nothing. Any exception of it, a value of a token file that cannot be converted included, is
/// only logged: `failure` takes its text.
template <class Step>
void Attempt(const char* failure, Step step, int line = __builtin_LINE()) {
  try {
    step();
  } catch (const std::exception& error) {
    LogError({kSource, line}, failure, Redact(error.what()).c_str());
  }
}

/// Whether the record is still that of the account that was reported. A report can take minutes: a sign-out in the
/// meantime must stay one, and an answer for one account is no concern of the next.
bool IsStillSignedIn(const _tag_kivo_INFO_& account) {
  AccountCopy now;
  return VARNKIVOAccountGet(&now) == 0 && std::strcmp(now.userId, account.userId) == 0 &&
         std::strcmp(now.authKey, account.authKey) == 0;
}

void StoreSchedule(const Json::Value& answer) {
  Attempt("Failed to set report cron timestring: %s", [&] {
    const std::optional<std::string> schedule = TextMember(answer, "report_cron_timestring");
    if (!schedule) throw KivoException(KIVO_ERR_RESPONSE);
    User().SetReportCronTimestring(*schedule);
  });
}

void FollowAcceptedReport() {
  Attempt("Failed to set report crontab: %s", [] { AccountService().SetReportCrontab(); });
  Attempt("Failed to renew token: %s", [] { AccountPkceService().GetAccessToken(); });
}

/// The account is gone or refuses this device: the administrators are told, then the device signs out.
void SignOut(int code, const _tag_kivo_INFO_& account) {
  Attempt("Failed to send sys notify: %s", [&] {
    const std::string email = User().GetEmail();
    if (code == KIVO_ERR_AUTH)
      LumService().SendSysNotify("kivo_force_logout", {{"%EMAIL%", email}, {"%LINK%", ServerInfo().GetAccountHost()}});
    else
      LumService().SendSysNotify("kivo_deletion_logout", {{"%EMAIL%", email}});
  });
  LogError(kSource, "Failed to auth [%s] on regularly report, auto logout.", Redact(account.email).c_str());
  Attempt("Failed to logout: %s", [] { AccountPkceService().Logout(); });
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOReportInfo(void) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    AccountCopy account;
    if (VARNKIVOAccountGet(&account) < 0 || IsReportDisabled()) return 0;
    const ServerConfig server = op.ReadServerConfig();
    const std::string zone = op.TimeZoneName();
    const std::string serial = op.SerialNumber();
    Request request(op, server.account, "device/api/report");
    request.Set("id", account.userId)
        .Set("auth_key", account.authKey)
        .Set("timezone", zone)
        .Set("serial_no", serial)
        .Set("lu_info", "");
    const char* body = request.Send();
    Json::Value answer;
    if (!ParseJson(body, answer)) op.Stop(KIVO_ERR_BAD_JSON, "Failed to parse json: %s", Redact(body).c_str());
    if (!HasMember(answer, "code")) {
      VARNKIVOErrSet(KIVO_ERR_RESPONSE);
      return -1;
    }
    const bool concernsUs = IsStillSignedIn(account);
    if (concernsUs && HasMember(answer, "report_cron_timestring")) StoreSchedule(answer);
    const int code = GetErrorCodeFromAccountError(StringOrNull(answer, "code"));
    if (code == KIVO_ERR_SUCCESS) {
      if (concernsUs) FollowAcceptedReport();
      return 0;
    }
    if (concernsUs && (code == KIVO_ERR_AUTH || code == KIVO_ERR_ACCOUNT_NOT_FOUND)) SignOut(code, account);
    op.Stop(code, "Failed to query service check, resp=%s", Redact(body).c_str());
  });
}
