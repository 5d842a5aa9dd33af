// The token client behind PkceClient.
#ifndef VARNKIVO_PKCE_PKCE_CLIENT_IMPL_H_
#define VARNKIVO_PKCE_PKCE_CLIENT_IMPL_H_

#include "token_file.h"
#include "token_set.h"

#include <json/json.h>

#include <functional>
#include <optional>
#include <string>

namespace varnkivo {

/// Takes its locks in one order: "_get_token" before "_renew_token" before "_save_token", and "_exchange_token" before
/// "_save_token".
class PkceClientImpl {
 public:
  explicit PkceClientImpl(const std::string& name) : name_(name) {}

  void SetPkceConfig(const Json::Value& config) { config_ = config; }
  bool HasTokenFile() const { return TokenFile(name_).Exists(); }
  std::string GetAccessToken() const { return GetToken("access_token"); }
  std::string GetIdToken() const { return GetToken("id_token"); }
  void ExchangeToken(const std::string& code, const std::string& codeVerifier, const std::string& redirectUri,
                     const std::function<bool()>& wanted = nullptr) const;
  Json::Value FormatPkceConfig(const Json::Value& tmpl) const;

 private:
  std::string GetToken(const char* key) const;
  TokenSet RenewToken() const;
  /// `findNewer` gives the set to keep instead, if there is one.
  TokenSet SaveToken(PendingTokenFile& pending, const Json::Value& answer,
                     const std::function<std::optional<TokenSet>()>& findNewer) const;
  std::optional<TokenSet> FindNewer(const std::string& spent) const;
  std::string GetConfigVal(const char* key) const;

  std::string name_;
  Json::Value config_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_PKCE_CLIENT_IMPL_H_
