// The account operations behind AccountService, and the base of the account PKCE service.
#ifndef VARNKIVO_PKCE_ACCOUNT_SERVICE_IMPL_H_
#define VARNKIVO_PKCE_ACCOUNT_SERVICE_IMPL_H_

#include <json/json.h>

#include <string>

namespace varnkivo {

class AccountServiceImpl {
 public:
  AccountServiceImpl(const std::string& accountHost, const std::string& identityHost);

  std::string GetAccountHost() const { return accountHost_; }
  std::string GetIdentityHost() const { return identityHost_; }
  Json::Value Login(const std::string& email, const std::string& password) const;
  Json::Value GetAndSyncRemoteJsonAccount() const;
  Json::Value GetLocalJsonAccount() const;
  void SetReportCrontab() const;

 private:
  std::string accountHost_;
  std::string identityHost_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_ACCOUNT_SERVICE_IMPL_H_
