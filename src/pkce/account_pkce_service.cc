// Signs the device in with an authorization code and keeps it signed in. Touches the account record, the token file of
// the client "lum", the report job and the plug-ins of "kivo/login".
// Only a KivoException of the rescue signs the device out: any other one must not.
#include "account_pkce_service.h"

#include "account_pkce_service_impl.h"
#include "authorization_request.h"
#include "internal/account_files.h"
#include "internal/json_utils.h"
#include "internal/log.h"
#include "internal/privilege_bracket.h"
#include "internal/redact.h"
#include "internal/string_utils.h"
#include "internal/wiped.h"
#include "kivo_exception.h"
#include "kivo_plugin_manager.h"
#include "lum_service.h"
#include "pkce_client_impl.h"
#include "user.h"
#include "varn/platform.h"
#include "web_request.h"

#include <unistd.h>

#include <ctime>

namespace varnkivo {
namespace {

constexpr const char* kSource = "account_pkce_service";
constexpr const char* kLoginConfig = "/usr/varn/etc.defaults/varnholt-account/config/pkce_login.conf";
constexpr const char* kRegisterConfig = "/usr/varn/etc.defaults/varnholt-account/config/pkce_register.conf";
constexpr const char* kLoginEvent = "kivo/login";
constexpr unsigned int kLogoutLogEvent = 0x13A00002;
constexpr int kExeclFlags = 187;

void ThrowUnlessArrived(const WebAnswer& answer, const char* message) {
  if (!answer.arrived) throw KivoException(KIVO_ERR_RESPONSE, format(message, answer.code, answer.message.c_str()));
}

[[noreturn]] void Throw(KIVO_ERRCODE code, const char* message, const WebAnswer& answer) {
  throw KivoException(code, format(message, answer.status, answer.Shown().c_str()));
}

/// The removal's own status does not tell whether it came to its end.
bool RecordIsThere() {
  const PrivilegeBracket bracket(kSource);
  return bracket.Entered() && access(kRecordFile, F_OK) == 0;
}

/// A member of a configuration or an answer that has been looked at.
std::string Text(const Json::Value& object, const char* name, KIVO_ERRCODE otherwise) {
  const std::optional<std::string> text = TextMember(object, name);
  if (!text) throw KivoException(otherwise);
  return *text;
}

}  // namespace

AccountPkceServiceImpl::AccountPkceServiceImpl(const std::string& accountHost, const std::string& identityHost)
    : AccountService(accountHost, identityHost) {
  client_.SetPkceConfig(GetLoginPkceConfig());
}

Json::Value AccountPkceServiceImpl::GetPkceConfig(const std::string& path) const {
  return client_.FormatPkceConfig(ReadJsonFile(path));
}

Json::Value AccountPkceServiceImpl::GetLoginPkceConfig() const { return GetPkceConfig(kLoginConfig); }
Json::Value AccountPkceServiceImpl::GetRegisterPkceConfig() const { return GetPkceConfig(kRegisterConfig); }

std::string AccountPkceServiceImpl::GetClientId() const {
  const Json::Value config = GetLoginPkceConfig();
  const std::string clientId = HasMember(config, "client_id") ? Text(config, "client_id", KIVO_ERR_BAD_JSON) : "";
  return clientId.empty() ? "-" : RequireHeaderValue(clientId, KIVO_ERR_BAD_PARAM);
}

bool AccountPkceServiceImpl::HasAuthKey() const {
  try {
    return !User().GetAuthKey().empty();
  } catch (...) {
    return false;
  }
}

std::string AccountPkceServiceImpl::GetToken(std::string (PkceClient::*get)() const) const {
  if (!client_.HasTokenFile() && HasAuthKey()) GrantByAuthKey();
  try {
    return (client_.*get)();
  } catch (const KivoException& error) {
    if (error.GetCode() != KIVO_ERR_AUTH) throw;
  }
  LogError(kSource, "Rescue lum renew pkce token by authkey");
  bool rescued = true;
  try {
    GrantByAuthKey();
  } catch (const KivoException&) {
    LogError(kSource, "Failed to rescue by authkey, force logout");
    rescued = false;
  }
  if (!rescued) Logout(false);
  return (client_.*get)();
}

bool AccountPkceServiceImpl::HasToken() const {
  try {
    GetAccessToken();
    return true;
  } catch (const KivoException& error) {
    if (error.GetCode() == KIVO_ERR_TOKEN) return false;
    throw;
  }
}

void AccountPkceServiceImpl::GrantByAuthKey() const {
  const Json::Value config = GetLoginPkceConfig();
  const std::string clientId = RequireHeaderValue(Text(config, "client_id", KIVO_ERR_BAD_JSON), KIVO_ERR_BAD_PARAM);
  const std::string redirectUri = Text(config, "login_redirect_uri", KIVO_ERR_BAD_JSON);
  const PkcePair pkce = NewPkcePair();
  const Wiped authKey(User().GetAuthKey());
  Pairs form = {{"client_id", clientId},
                {"redirect_url", redirectUri},
                {"state", format("%ld", static_cast<long>(time(nullptr)))},
                {"code_challenge", pkce.challenge},
                {"auth_key", authKey}};
  AddScopes(form, Text(config, "scope", KIVO_ERR_BAD_JSON));
  const WebAnswer answer = WebPost(GetAccountHost() + "/migration/api/v1/device/core/authorization_code/grant",
                                   {{"X-Client-ID", clientId}}, form);
  ThrowUnlessArrived(answer, "Failed to grant by authkey, reqcode=%d, reqmsg=%s");
  if (answer.status == 401) Throw(KIVO_ERR_AUTH, "Failed to auth on grant by authkey, code=%d, resp=%s", answer);
  if (answer.status != 200) Throw(KIVO_ERR_RESPONSE, "Failed to grant by authkey, code=%d, resp=%s", answer);
  const Json::Value reply = ParseAnswer(answer.body);
  if (!HasMember(reply, "grant_code"))
    Throw(KIVO_ERR_RESPONSE, "Failed to parse grant by authkey resp, code=%d, resp=%s", answer);
  // A sign-out in the meantime must stay one.
  const auto stillSignedIn = [&authKey] { return Wiped(User().GetAuthKey()) == authKey; };
  client_.impl_->ExchangeToken(client_.impl_->GetConfig(), Text(reply, "grant_code", KIVO_ERR_RESPONSE), pkce.verifier,
                               redirectUri, stillSignedIn);
}

Json::Value AccountPkceServiceImpl::ExchangeAuthKey(const std::string& accessToken) const {
  // No X-Client-ID on purpose: the account host knows the client from the token.
  const WebAnswer answer = WebPost(GetAccountHost() + "/oauth2/api/v1/device/core/authkey/exchange",
                                   {{"Authorization", "Bearer " + RequireHeaderValue(accessToken, KIVO_ERR_TOKEN)}});
  ThrowUnlessArrived(answer, "Failed to exchange authkey, reqcode=%d, reqmsg=%s");
  if (answer.status != 200) Throw(KIVO_ERR_RESPONSE, "Failed to exchange authkey, code=%d, resp=%s", answer);
  Json::Value reply = ParseAnswer(answer.body);
  if (HasMember(reply, "user_id") && HasMember(reply, "auth_key")) return reply;
  LogError(kSource, "Failed to ExchangeAuthKey by [%s], code=%d, resp=%s", Cut10(accessToken).c_str(), answer.status,
           answer.Shown().c_str());
  Throw(KIVO_ERR_TOKEN, "Failed to parse exchange authkey resp, code=%d, resp=%s", answer);
}

Json::Value AccountPkceServiceImpl::Login(const ParamPkceLogin& param) const {
  const KivoPluginManager plugins;
  plugins.Pre(kLoginEvent);
  client_.ExchangeToken(param.code, param.codeVerifier, param.redirectUri);
  const Json::Value reply = ExchangeAuthKey(GetAccessToken());
  const std::string userId = Text(reply, "user_id", KIVO_ERR_RESPONSE);
  const std::string authKey = Text(reply, "auth_key", KIVO_ERR_RESPONSE);
  const User user;
  user.SetAccountHost(GetAccountHost());
  user.SetIdentityHost(GetIdentityHost());
  user.SetUserId(userId);
  user.SetAuthKey(authKey);
  Json::Value account = GetAndSyncRemoteJsonAccount();
  LogError(kSource, "Logged in Varnholt Account as [%s]", Redact(account["email"].asString()).c_str());
  SetReportCrontab();
  plugins.Post(kLoginEvent);
  return account;
}

void AccountPkceServiceImpl::Logout(bool sendAccessToken) const {
  const User user;
  if (!user.Exists()) {
    LogoutLocal();
    return;
  }
  Pairs form = {{"serial_no", LumService().GetSerialNo()}, {"auth_key", user.GetAuthKey()}};
  if (sendAccessToken) form.emplace_back("access_token", GetAccessToken());
  const WebAnswer answer = WebPost(GetAccountHost() + "/device/api/logout", {{"X-Client-ID", GetClientId()}}, form);
  ThrowUnlessArrived(answer, "Failed to logout, reqcode=%d, reqmsg=%s");
  if (answer.status != 200) Throw(KIVO_ERR_RESPONSE, "Failed to logout, code=%d, resp=%s", answer);
  const Json::Value reply = ParseAnswer(answer.body);
  if (!reply.isObject()) Throw(KIVO_ERR_BAD_JSON, "Failed to parse logout resp, code=%d, resp=%s", answer);
  if (reply.isMember("code")) {
    const int code = GetErrorCodeFromAccountError(StringOrNull(reply, "code"));
    if (code != KIVO_ERR_SUCCESS)
      throw KivoException(static_cast<KIVO_ERRCODE>(code), "Failed to logout with success code");
  }
  LogoutLocal();
}

void AccountPkceServiceImpl::LogoutLocal() const {
  std::string email;
  try {
    email = User().GetEmail();
  } catch (const KivoException&) {  // said by the record; the rest is cleared all the same
  }
  if (email.empty())
    LogError(kSource, "Logged out Varnholt Account");
  else
    LogError(kSource, "Logged out Varnholt Account: %s", Redact(email).c_str());
  VARNKIVOAccountRemove();
  if (RecordIsThere()) LogError(kSource, "Failed to unlink %s", kRecordFile);
  if (!VARNKIVOAccountUnregisterCrond()) LogError(kSource, "Failed to remove crontab for kivo");
  VARNLogSet1(2, 1, kLogoutLogEvent, "", "", "", "");
  if (VLIBCExecl("/bin/sh", kExeclFlags, "-c", "/bin/rm -f /usr/varn/etc/varnholt-account/private/*_token.json",
                 static_cast<const char*>(nullptr)) != 0)
    LogError(kSource, "Failed to clear token files");
}

AccountPkceService::AccountPkceService() : AccountPkceService("", "") {}
AccountPkceService::AccountPkceService(const std::string& accountHost, const std::string& identityHost)
    : impl_(new AccountPkceServiceImpl(accountHost, identityHost)) {}
AccountPkceService::~AccountPkceService() = default;  // here, where AccountPkceServiceImpl is complete
Json::Value AccountPkceService::GetLoginPkceConfig() const { return impl_->GetLoginPkceConfig(); }
Json::Value AccountPkceService::GetRegisterPkceConfig() const { return impl_->GetRegisterPkceConfig(); }
Json::Value AccountPkceService::Login(const ParamPkceLogin& param) const { return impl_->Login(param); }
bool AccountPkceService::HasToken() const { return impl_->HasToken(); }
std::string AccountPkceService::GetAccessToken() const { return impl_->GetAccessToken(); }
std::string AccountPkceService::GetIdToken() const { return impl_->GetIdToken(); }
void AccountPkceService::Logout() const { impl_->Logout(true); }
void AccountPkceService::LogoutLocal() const { impl_->LogoutLocal(); }

}  // namespace varnkivo
