// Hands out a package's tokens: granted by the account host to a device that is signed in, then kept and renewed by the
// token client of that name. Touches the package's token file, its lock files and the cache of its configuration.
// The configuration is loaded only for a grant or a renewal: a valid token must be had without a network, also after a
// restart has emptied the cache.
#include "package_pkce_client.h"

#include "account_pkce_service.h"
#include "account_service.h"
#include "authorization_request.h"
#include "internal/json_utils.h"
#include "internal/log.h"
#include "internal/string_utils.h"
#include "internal/wiped.h"
#include "kivo_exception.h"
#include "operation_lock.h"
#include "package_config_file.h"
#include "package_pkce_client_impl.h"
#include "pkce_client_impl.h"
#include "token_file.h"
#include "user.h"
#include "web_request.h"

#include <cstdint>
#include <ctime>
#include <string_view>

namespace varnkivo {
namespace {

constexpr const char* kSource = "package_pkce_client";
constexpr const char* kSaveSource = "..//include/internal/json_utils";
constexpr const char* kDeviceClient = "lum";
constexpr std::int64_t kConfigLifetime = 108000;  // seconds

std::string BearerOfDevice() {
  return "Bearer " + RequireHeaderValue(AccountPkceService().GetAccessToken(), KIVO_ERR_TOKEN);
}

std::int64_t CreatedAt(const std::optional<Json::Value>& config) {
  try {
    const Json::Value created = config ? (*config)["created_at"] : Json::Value();
    return created.isNumeric() ? created.asInt64() : 0;
  } catch (const Json::Exception&) {  // a number out of range
    return 0;
  }
}

std::string Text(const Json::Value& object, const char* name) {
  const std::optional<std::string> text = TextMember(object, name);
  if (!text) throw KivoException(KIVO_ERR_RESPONSE);
  return *text;
}

/// "https://" and what begins a host.
bool IsEndpoint(const std::string& url) {
  const std::string scheme = "https://";
  return url.rfind(scheme, 0) == 0 && url.size() > scheme.size() &&
         std::string_view("/?#@:").find(url[scheme.size()]) == std::string_view::npos;
}

/// Before anything is sent because of it: without the endpoint a code would be spent for nothing.
void RequireUsable(const Json::Value& config) {
  for (const char* name : {"client_id", "login_redirect_uri"})
    if (Text(config, name).empty()) throw KivoException(KIVO_ERR_RESPONSE);
  Text(config, "scope");
  RequireHeaderValue(Text(config, "client_id"), KIVO_ERR_TOKEN);
  if (!IsEndpoint(RequireHeaderValue(Text(config, "token_endpoint"), KIVO_ERR_RESPONSE)))
    throw KivoException(KIVO_ERR_RESPONSE);
}

}  // namespace

void PackagePkceClientImpl::RequireName() const {
  if (!IsClientName(packageName_) || packageName_ == kDeviceClient) throw KivoException(KIVO_ERR_BAD_PARAM);
}

std::string PackagePkceClientImpl::GetConfigFilePath() const {
  return "/tmp/account_" + packageName_ + "_pkce_client.conf";
}

void PackagePkceClientImpl::SavePkceConfig(const Json::Value& config) const {
  Json::Value stored = config;
  stored["created_at"] = static_cast<Json::Int64>(time(nullptr));
  if (WriteTrustedConfig(GetConfigFilePath(), stored)) return;
  LogError(kSaveSource, "Failed to save json: %s", GetConfigFilePath().c_str());
  throw KivoException(KIVO_ERR_BAD_JSON);
}

void PackagePkceClientImpl::RetrievePkceConfig() const {
  const OperationLock lock(packageName_, "_package_retrieve_config");
  const WebAnswer answer =
      WebGet(AccountService().GetAccountHost() + "/oauth2/api/v1/device/package/config/pkce/client",
             {{"Authorization", BearerOfDevice()}}, {{"package_name", packageName_}});
  const char* const package = packageName_.c_str();
  if (!answer.arrived)
    throw KivoException(KIVO_ERR_RESPONSE, format("Failed to retrieve pacakge[%s], reqcode=%d, reqmsg=%s", package,
                                                  answer.code, answer.message.c_str()));
  if (answer.status != 200)
    throw KivoException(KIVO_ERR_RESPONSE, format("Failed to retrieve pacakge[%s] pkce config, code=%d, resp=%s",
                                                  package, answer.status, answer.Shown().c_str()));
  const Json::Value config = ParseAnswer(answer.body);
  if (!config.isObject())
    throw KivoException(KIVO_ERR_RESPONSE,
                        format("Failed to parse retrieve pacakge[%s] pkce config resp, code=%d, resp=%s", package,
                               answer.status, answer.Shown().c_str()));
  SavePkceConfig(config);
}

Json::Value PackagePkceClientImpl::GetPkceConfig() const {
  std::optional<Json::Value> config = ReadTrustedConfig(GetConfigFilePath());
  if (time(nullptr) - kConfigLifetime > CreatedAt(config)) {
    RetrievePkceConfig();
    config = ReadTrustedConfig(GetConfigFilePath());
  }
  if (!config) throw KivoException(KIVO_ERR_BAD_JSON);
  return *config;
}

/// One that is of no use is forgotten, so that the next call asks for another.
Json::Value PackagePkceClientImpl::GetUsableConfig() const {
  Json::Value config = GetPkceConfig();
  try {
    RequireUsable(config);
  } catch (const KivoException&) {
    RemoveTrustedConfig(GetConfigFilePath());
    throw;
  }
  return config;
}

void PackagePkceClientImpl::GrantByAccountService() const {
  const OperationLock lock(packageName_, "_package_grant_by_lum");
  const Json::Value config = GetUsableConfig();
  const std::string clientId = Text(config, "client_id"), redirectUri = Text(config, "login_redirect_uri");
  const PkcePair pkce = NewPkcePair();
  const Wiped authKey(User().GetAuthKey());
  Pairs form = {{"client_id", clientId},
                {"redirect_url", redirectUri},
                {"state", format("%ld", static_cast<long>(time(nullptr)))},
                {"code_challenge", pkce.challenge}};
  AddScopes(form, Text(config, "scope"));
  const WebAnswer answer =
      WebPost(AccountService().GetAccountHost() + "/oauth2/api/v1/device/package/authorization_code/grant",
              {{"X-Client-ID", clientId}, {"Authorization", BearerOfDevice()}}, form);
  const char* const package = packageName_.c_str();
  if (!answer.arrived)
    throw KivoException(KIVO_ERR_RESPONSE, format("Failed to grant pacakge[%s], reqcode=%d, reqmsg=%s", package,
                                                  answer.code, answer.message.c_str()));
  if (answer.status != 200)
    throw KivoException(KIVO_ERR_RESPONSE, format("Failed to grant pacakge[%s], code=%d, resp=%s", package,
                                                  answer.status, answer.Shown().c_str()));
  const Json::Value reply = ParseAnswer(answer.body);
  if (!HasMember(reply, "grant_code"))
    throw KivoException(KIVO_ERR_RESPONSE, format("Failed to parse grant pacakge[%s] resp, code=%d, resp=%s", package,
                                                  answer.status, answer.Shown().c_str()));
  // A sign-out in the meantime takes the packages' tokens too, and must stay one.
  const auto stillSignedIn = [&authKey] { return Wiped(User().GetAuthKey()) == authKey; };
  client_.impl_->ExchangeToken(config, Text(reply, "grant_code"), pkce.verifier, redirectUri, stillSignedIn);
}

std::string PackagePkceClientImpl::GetToken(const char* key) const {
  RequireName();
  const OperationLock lock(packageName_, "_package_get_token");
  std::optional<std::string> token = FindOrRescue(key);
  if (token) return *std::move(token);
  GrantByAccountService();
  token = FindOrRescue(key);
  if (token) return *std::move(token);
  throw NoTokenFile();
}

/// Nothing where there is no token file.
std::optional<std::string> PackagePkceClientImpl::FindOrRescue(const char* key) const {
  const auto config = [this] { return GetUsableConfig(); };
  try {
    return client_.impl_->FindToken(key, config);
  } catch (const KivoException& error) {
    if (error.GetCode() != KIVO_ERR_AUTH) throw;
  }
  LogError(kSource, "Rescue package[%s] renew pkce token by lum token", packageName_.c_str());
  GrantByAccountService();
  return client_.impl_->GetToken(key, config);
}

void PackagePkceClientImpl::ForceRenewToken() const {
  RequireName();
  GrantByAccountService();
}

PackagePkceClient::PackagePkceClient(const std::string& packageName) : impl_(new PackagePkceClientImpl(packageName)) {}
PackagePkceClient::~PackagePkceClient() = default;  // here, where PackagePkceClientImpl is complete
std::string PackagePkceClient::GetAccessToken() const { return impl_->GetAccessToken(); }
std::string PackagePkceClient::GetIdToken() const { return impl_->GetIdToken(); }
void PackagePkceClient::ForceRenewToken() const { impl_->ForceRenewToken(); }

}  // namespace varnkivo
