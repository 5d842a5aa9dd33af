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

  using ConfigSource = std::function<Json::Value()>;

  void SetPkceConfig(const Json::Value& config) { config_ = config; }
  const Json::Value& GetConfig() const { return config_; }
  bool HasTokenFile() const { return TokenFile(name_).Exists(); }
  /// `key`: a member of the token set. The configuration is asked for when a renewal is due. Nothing where there is no
  /// token file.
  std::optional<std::string> FindToken(const char* key, const ConfigSource& config) const;
  /// As FindToken, but throws KivoException 22 without a token file.
  std::string GetToken(const char* key, const ConfigSource& config) const;
  /// Stores the set only if it is still `wanted` when it is there; throws KivoException 22 otherwise.
  void ExchangeToken(const Json::Value& config, const std::string& code, const std::string& codeVerifier,
                     const std::string& redirectUri, const std::function<bool()>& wanted = nullptr) const;
  Json::Value FormatPkceConfig(const Json::Value& tmpl) const;

 private:
  TokenSet RenewToken(const Json::Value& config) const;
  /// `findNewer` gives the set to keep instead, if there is one.
  TokenSet SaveToken(PendingTokenFile& pending, const Json::Value& answer,
                     const std::function<std::optional<TokenSet>()>& findNewer) const;
  std::optional<TokenSet> FindNewer(const std::string& spent) const;

  std::string name_;
  Json::Value config_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_PKCE_CLIENT_IMPL_H_
