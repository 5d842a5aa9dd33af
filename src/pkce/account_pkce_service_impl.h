// The device's sign-in behind AccountPkceService.
#ifndef VARNKIVO_PKCE_ACCOUNT_PKCE_SERVICE_IMPL_H_
#define VARNKIVO_PKCE_ACCOUNT_PKCE_SERVICE_IMPL_H_

#include "account_pkce_service.h"
#include "account_service.h"
#include "pkce_client.h"

#include <json/json.h>

#include <string>

namespace varnkivo {

class AccountPkceServiceImpl : public AccountService {
 public:
  AccountPkceServiceImpl(const std::string& accountHost, const std::string& identityHost);

  Json::Value GetLoginPkceConfig() const;
  Json::Value GetRegisterPkceConfig() const;
  Json::Value Login(const ParamPkceLogin& param) const;
  bool HasToken() const;
  std::string GetAccessToken() const { return GetToken(&PkceClient::GetAccessToken); }
  std::string GetIdToken() const { return GetToken(&PkceClient::GetIdToken); }
  /// Without `sendAccessToken` no token is asked for, so that a sign-out cannot lead into itself.
  void Logout(bool sendAccessToken) const;
  void LogoutLocal() const;

 private:
  Json::Value GetPkceConfig(const std::string& path) const;
  std::string GetClientId() const;
  std::string GetToken(std::string (PkceClient::*get)() const) const;
  bool HasAuthKey() const;
  void GrantByAuthKey() const;
  Json::Value ExchangeAuthKey(const std::string& accessToken) const;

  PkceClient client_{"lum"};
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_ACCOUNT_PKCE_SERVICE_IMPL_H_
