// A package's tokens behind PackagePkceClient.
#ifndef VARNKIVO_PKCE_PACKAGE_PKCE_CLIENT_IMPL_H_
#define VARNKIVO_PKCE_PACKAGE_PKCE_CLIENT_IMPL_H_

#include "pkce_client.h"

#include <json/json.h>

#include <optional>
#include <string>

namespace varnkivo {

/// Takes its locks in one order: "_package_get_token" before "_package_grant_by_lum" before the package's locks of the
/// token client before "_package_retrieve_config" before the device's own ("lum").
class PackagePkceClientImpl {
 public:
  explicit PackagePkceClientImpl(const std::string& packageName) : packageName_(packageName), client_(packageName) {}

  std::string GetAccessToken() const { return GetToken("access_token"); }
  std::string GetIdToken() const { return GetToken("id_token"); }
  void ForceRenewToken() const;

 private:
  std::string GetConfigFilePath() const;
  void SavePkceConfig(const Json::Value& config) const;
  void RetrievePkceConfig() const;
  Json::Value GetPkceConfig() const;
  Json::Value GetUsableConfig() const;
  void GrantByAccountService() const;
  std::string GetToken(const char* key) const;
  std::optional<std::string> FindOrRescue(const char* key) const;
  void RequireName() const;

  std::string packageName_;
  PkceClient client_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_PACKAGE_PKCE_CLIENT_IMPL_H_
