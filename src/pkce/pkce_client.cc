// Hands out one client's tokens and keeps them alive. Touches the client's token file and its lock files.
// The room for a new set is reserved before a refresh token or a code is spent, and a renewal never overwrites a set
// newer than the one it spent.
#include "pkce_client.h"

#include "account_service.h"
#include "internal/json_utils.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "internal/string_utils.h"
#include "internal/wiped.h"
#include "kivo_exception.h"
#include "lum_service.h"
#include "operation_lock.h"
#include "pkce_client_impl.h"
#include "web_request.h"

#include <boost/algorithm/string/replace.hpp>

#include <ctime>
#include <utility>

namespace varnkivo {
namespace {

constexpr const char* kSource = "pkce_client";

/// Logs what is then thrown.
[[noreturn]] void Fail(KIVO_ERRCODE code, const std::string& message, int line = __builtin_LINE()) {
  LogError({kSource, line}, "%s", message.c_str());
  throw KivoException(code, message);
}

std::string TemplateText(const Json::Value& tmpl, const char* key) {
  const std::optional<std::string> text = tmpl.isObject() || tmpl.isNull() ? TextMember(tmpl, key) : std::nullopt;
  if (!text) throw KivoException(KIVO_ERR_BAD_JSON);
  return *text;
}

std::string GetConfigVal(const Json::Value& config, const char* key) {
  const bool readable = config.isObject() || config.isNull();  // none was set: every member is empty
  const std::optional<std::string> text = readable ? TextMember(config, key) : std::nullopt;
  if (!text) throw KivoException(KIVO_ERR_BAD_PARAM);
  return *text;
}

std::string FillIn(std::string scope) {
  if (scope.find("$sn$") != std::string::npos) boost::replace_all(scope, "$sn$", LumService().GetSerialNo());
  if (scope.find("$mac$") != std::string::npos) boost::replace_all(scope, "$mac$", LumService().GetMac());
  return scope;
}

}  // namespace

std::optional<std::string> PkceClientImpl::FindToken(const char* key, const ConfigSource& config) const {
  const TokenFile file(name_);
  const OperationLock lock(name_, "_get_token");
  const std::optional<TokenSet> tokens = file.Find();
  if (!tokens) return std::nullopt;
  return tokens->IsTokenExpired(time(nullptr)) ? RenewToken(config()).GetPkceTokenVal(key)
                                               : tokens->GetPkceTokenVal(key);
}

std::string PkceClientImpl::GetToken(const char* key, const ConfigSource& config) const {
  if (std::optional<std::string> token = FindToken(key, config)) return *std::move(token);
  throw NoTokenFile();
}

TokenSet PkceClientImpl::RenewToken(const Json::Value& config) const {
  const OperationLock lock(name_, "_renew_token");
  const std::string clientId = RequireHeaderValue(GetConfigVal(config, "client_id"), KIVO_ERR_BAD_PARAM);
  const std::string endpoint = GetConfigVal(config, "token_endpoint");
  const Wiped refreshToken(TokenFile(name_).Read().GetPkceTokenVal("refresh_token"));
  PendingTokenFile pending(name_, kSource);
  const WebAnswer answer =
      WebPost(endpoint, {{"X-Client-ID", clientId}},
              {{"grant_type", "refresh_token"}, {"refresh_token", refreshToken}, {"client_id", clientId}});
  if (!answer.arrived)
    throw KivoException(KIVO_ERR_RESPONSE,
                        format("Failed to renew token, reqcode=%d, reqmsg=%s", answer.code, answer.message.c_str()));
  const std::string shown = answer.Shown();
  const Json::Value reply = ParseAnswer(answer.body);
  if (!reply.isObject())
    Fail(KIVO_ERR_RESPONSE, format("Failed to parse renew token resp, code=%d, resp=%s", answer.status, shown.c_str()));
  if (answer.status != 200)
    Fail(KIVO_ERR_AUTH, format("Failed to renew token, refresh_token is expired or revoked, code=%d, resp=%s",
                               answer.status, shown.c_str()));
  if (TokenSet::IsComplete(reply)) return SaveToken(pending, reply, [&] { return FindNewer(refreshToken); });
  LogError(kSource, "Failed to RenewToken by [%s], resp=%s", Cut10(refreshToken).c_str(),
           Redact(reply.toStyledString()).c_str());
  throw KivoException(KIVO_ERR_TOKEN,
                      format("Failed to parse renew token resp, code=%d, resp=%s", answer.status, shown.c_str()));
}

void PkceClientImpl::ExchangeToken(const Json::Value& config, const std::string& code, const std::string& codeVerifier,
                                   const std::string& redirectUri, const std::function<bool()>& wanted) const {
  const TokenFile file(name_);
  const OperationLock lock(name_, "_exchange_token");
  const std::string clientId = RequireHeaderValue(GetConfigVal(config, "client_id"), KIVO_ERR_BAD_PARAM);
  const std::string endpoint = GetConfigVal(config, "token_endpoint");
  PendingTokenFile pending(name_, kSource);
  const WebAnswer answer = WebPost(endpoint, {{"X-Client-ID", clientId}},
                                   {{"grant_type", "authorization_code"},
                                    {"client_id", clientId},
                                    {"redirect_uri", redirectUri},
                                    {"code", code},
                                    {"code_verifier", codeVerifier}});
  if (!answer.arrived)
    throw KivoException(KIVO_ERR_RESPONSE,
                        format("Failed to exchange token, reqcode=%d, reqmsg=%s", answer.code, answer.message.c_str()));
  const std::string shown = answer.Shown();
  if (answer.status != 200)
    throw KivoException(KIVO_ERR_RESPONSE,
                        format("Failed to exchange token, code=%d, resp=%s", answer.status, shown.c_str()));
  const Json::Value reply = ParseAnswer(answer.body);
  if (TokenSet::IsComplete(reply)) {
    SaveToken(pending, reply, [&]() -> std::optional<TokenSet> {
      if (wanted && !wanted()) throw KivoException(KIVO_ERR_TOKEN);
      return std::nullopt;
    });
    return;
  }
  LogError(kSource, "Failed to PkceLogin by [%s|%s], resp=%s", Cut10(code).c_str(), Cut10(codeVerifier).c_str(),
           shown.c_str());
  throw KivoException(KIVO_ERR_TOKEN,
                      format("Failed to parse exchange authkey resp, code=%d, resp=%s", answer.status, shown.c_str()));
}

TokenSet PkceClientImpl::SaveToken(PendingTokenFile& pending, const Json::Value& answer,
                                   const std::function<std::optional<TokenSet>()>& findNewer) const {
  const OperationLock lock(name_, "_save_token");
  Json::Value members = answer;
  members["created_at"] = static_cast<Json::Int64>(time(nullptr));
  if (const std::optional<TokenSet> newer = findNewer()) return *newer;
  TokenSet tokens(std::move(members));
  pending.Save(tokens, kSource);
  return tokens;
}

/// The set on disk when it is no longer the one whose refresh token was spent: somebody has signed in meanwhile. After
/// a sign-out nothing must come back.
std::optional<TokenSet> PkceClientImpl::FindNewer(const std::string& spent) const {
  const TokenFile file(name_);
  if (file.IsGone()) return file.Read();
  try {
    TokenSet now = file.Read();
    if (now.GetPkceTokenVal("refresh_token") != spent) return now;
  } catch (const KivoException&) {
    return std::nullopt;  // what cannot be read is worth less than the new set
  }
  return std::nullopt;
}

Json::Value PkceClientImpl::FormatPkceConfig(const Json::Value& tmpl) const {
  const std::string scope = FillIn(TemplateText(tmpl, "scope"));
  const AccountService service;
  const std::string accountHost = service.GetAccountHost(), identityHost = service.GetIdentityHost();
  Json::Value config(Json::objectValue);
  config["client_id"] = TemplateText(tmpl, "client_id");
  config["scope"] = scope;
  config["audience"] = TemplateText(tmpl, "audience");
  config["auth_endpoint"] = identityHost + TemplateText(tmpl, "auth_endpoint_path");
  config["token_endpoint"] = identityHost + TemplateText(tmpl, "token_endpoint_path");
  config["end_session_endpoint"] = identityHost + TemplateText(tmpl, "end_session_endpoint_path");
  config["login_redirect_uri"] = accountHost + TemplateText(tmpl, "login_redirect_path");
  config["logout_redirect_uri"] = accountHost + TemplateText(tmpl, "logout_redirect_path");
  return config;
}

PkceClient::PkceClient(const std::string& name) : impl_(new PkceClientImpl(name)) {}
PkceClient::~PkceClient() = default;  // here, where PkceClientImpl is complete
void PkceClient::SetPkceConfig(const Json::Value& config) { impl_->SetPkceConfig(config); }
bool PkceClient::HasTokenFile() const { return impl_->HasTokenFile(); }
std::string PkceClient::GetAccessToken() const {
  return impl_->GetToken("access_token", [this] { return impl_->GetConfig(); });
}
std::string PkceClient::GetIdToken() const {
  return impl_->GetToken("id_token", [this] { return impl_->GetConfig(); });
}
void PkceClient::ExchangeToken(const std::string& code, const std::string& codeVerifier,
                               const std::string& redirectUri) const {
  impl_->ExchangeToken(impl_->GetConfig(), code, codeVerifier, redirectUri);
}
Json::Value PkceClient::FormatPkceConfig(const Json::Value& tmpl) const { return impl_->FormatPkceConfig(tmpl); }

}  // namespace varnkivo
