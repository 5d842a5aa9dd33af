// Fixes the hosts of a piece of work, and turns results of the exported functions into exceptions.
// Touches the account record: a synchronisation that fails deletes it, whatever the reason was.
#include "account_service.h"

#include "account_service_impl.h"
#include "internal/account_files.h"
#include "internal/log.h"
#include "internal/operation.h"
#include "internal/privilege_bracket.h"
#include "internal/redact.h"
#include "kivo_exception.h"
#include "server_info.h"

#include <unistd.h>

namespace varnkivo {
namespace {

constexpr const char* kSource = "account_service";
constexpr const char* kReportCommand = "/usr/varn/bin/varnkivo --report_info";

/// With the code that the exported function left, which may be 0.
[[noreturn]] void ThrowLastError() { throw KivoException(static_cast<KIVO_ERRCODE>(VARNKIVOErrGet())); }

void DeleteRecord() {
  const PrivilegeBracket bracket(kSource);
  if (!bracket.Entered() || unlink(kRecordFile) != 0) LogError(kSource, "Failed to unlink %s", kRecordFile);
}

}  // namespace

AccountServiceImpl::AccountServiceImpl(const std::string& accountHost, const std::string& identityHost)
    : accountHost_(accountHost), identityHost_(identityHost) {
  if (accountHost_.empty()) accountHost_ = ServerInfo().GetAccountHost();
  if (identityHost_.empty()) identityHost_ = ServerInfo().GetIdentityHost();
}

Json::Value AccountServiceImpl::Login(const std::string& email, const std::string& password) const {
  Json::Value reply;
  if (VARNKIVOAccountLogin(email.c_str(), password.c_str(), reply, false) >= 0) return reply;
  LogError(kSource, "VARNKIVOAccountLogin failed, email=%s", Redact(email).c_str());
  ThrowLastError();
}

Json::Value AccountServiceImpl::GetAndSyncRemoteJsonAccount() const {
  Json::Value reply(Json::objectValue);
  if (VARNKIVOAccountQueryInfo(reply, true, true) >= 0) return reply;
  DeleteRecord();
  ThrowLastError();
}

Json::Value AccountServiceImpl::GetLocalJsonAccount() const {
  Json::Value reply(Json::objectValue);
  if (VARNKIVOAccountQueryInfo(reply, false, false) < 0) ThrowLastError();
  return reply;
}

void AccountServiceImpl::SetReportCrontab() const {
  VARNScheduleRemove(kReportCommand);
  if (IsReportDisabled()) return;
  if (!VARNKIVOAccountRegisterCrond()) LogError(kSource, "Failed to add crontab for kivo");
}

AccountService::AccountService() : AccountService("", "") {}
AccountService::AccountService(const std::string& accountHost, const std::string& identityHost)
    : impl_(new AccountServiceImpl(accountHost, identityHost)) {}
AccountService::~AccountService() = default;  // here, where AccountServiceImpl is complete
std::string AccountService::GetAccountHost() const { return impl_->GetAccountHost(); }
std::string AccountService::GetIdentityHost() const { return impl_->GetIdentityHost(); }
Json::Value AccountService::Login(const std::string& email, const std::string& password) const {
  return impl_->Login(email, password);
}
Json::Value AccountService::GetAndSyncRemoteJsonAccount() const { return impl_->GetAndSyncRemoteJsonAccount(); }
Json::Value AccountService::GetLocalJsonAccount() const { return impl_->GetLocalJsonAccount(); }
void AccountService::SetReportCrontab() const { impl_->SetReportCrontab(); }

}  // namespace varnkivo
