// Signs the device in: with e-mail and password, with a user id and auth key already known, or with an OAuth token.
// Touches the account record, the report job, the event log, and fires the "kivo/login" plug-ins.
// The three share their steps but not their order: the key login fires the plug-ins before it registers the job.
#include "internal/account_files.h"
#include "internal/json_utils.h"
#include "internal/log.h"
#include "internal/operation.h"
#include "internal/privilege_bracket.h"
#include "internal/redact.h"
#include "user.h"
#include "varnkivo.h"

#include <json/json.h>

#include <unistd.h>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_account_login";
constexpr const char* kEvent = "kivo/login";
constexpr unsigned int kLoginEvent = 0x13A00001;
constexpr int kHandleExpiredKey = 2;

struct Identity {
  std::string userId, authKey;
};

std::string RegisterApiKey(const Operation& op) {
  LogError(op.source, "ApiKey not found. Register new one.");
  char key[VARN_CLOUD_API_KEY_SIZE] = {};
  if (VARNCloudServiceRegisterApiKey(key) < 0) op.Stop(kKeepCode, "VARNCloudServiceRegisterApiKey failed");
  return key;
}

const char* SendAndParse(const Operation& op, Request& request, Json::Value& reply) {
  const char* body = request.Send();
  if (!ParseJson(body, reply)) op.Stop(KIVO_ERR_BAD_JSON, "Failed to parse json: %s", Redact(body).c_str());
  return body;
}

/// The server's last word. Its code is in the slot too, but another thread may have changed that since.
struct Verdict {
  const char* body;
  int code;
};

/// Sends the login; an API key that the server does not know is replaced and the login sent once more.
Verdict Exchange(const Operation& op, Request& request, Json::Value& reply) {
  const char* body = SendAndParse(op, request, reply);
  if (!HasMember(reply, "code")) op.Stop(KIVO_ERR_RESPONSE, "bad response, no code");
  int code = MapLibKivoCenterErrorCode(StringOrNull(reply, "code"));
  if (code == KIVO_ERR_APIKEY_NOT_FOUND) {
    request.Set("api_key", RegisterApiKey(op));
    body = SendAndParse(op, request, reply);
    code = MapLibKivoCenterErrorCode(StringOrNull(reply, "code"));
  } else if (code == KIVO_ERR_APIKEY_EXPIRED) {
    VARNCloudServiceActionHandler(kHandleExpiredKey);
  }
  return {body, code};
}

Identity IdentityFromReply(const Operation& op, const Json::Value& reply) {
  const std::optional<std::string> userId = TextMember(reply, "id"), authKey = TextMember(reply, "auth_key");
  if (!userId || !authKey) op.Stop(KIVO_ERR_RESPONSE, "bad response, no id or auth_key that could be stored");
  return {*userId, *authKey};
}

void StoreIdentity(const Operation& op, const Identity& identity) {
  try {
    const User user;
    user.SetUserId(identity.userId);
    user.SetAuthKey(identity.authKey);
  } catch (const KivoException& error) {
    op.StopFor(error, "Failed to set user: %s");
  }
}

void RegisterReportJob(const Operation& op) {
  if (!IsReportDisabled() && !VARNKIVOAccountRegisterCrond()) LogError(op.source, "Failed to add crontab for kivo");
}

void Announce(const Operation& op, const std::string& email) {
  LogError(op.source, "Logged in Kivo Center as %s", Redact(email).c_str());
  VARNLogSet1(2, 1, kLoginEvent, email.c_str(), "", "", "");
}

/// The profile of the new account is wanted but not needed; the slot keeps what the query left there.
void QueryProfile() {
  Json::Value profile(Json::objectValue);
  VARNKIVOAccountQueryInfo(profile, true, true);
}

void DeleteRecord() {
  const PrivilegeBracket bracket({kSource, 70});
  if (bracket.Entered()) unlink(kRecordFile);
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountLogin(const char* email, const char* password, Json::Value& response, bool verifyOnly) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (!email || !password) op.Stop(KIVO_ERR_BAD_PARAM, "Bad Parameters");
    PluginSession plugins(op, kEvent);
    const ServerConfig server = op.ReadServerConfig();
    const std::string serial = op.SerialNumber();
    const std::string mac = op.MacAddress();
    const std::string apiKey = op.ApiKey();
    Request request(op, server.account, "device/api/password_login");
    request.Set("type", "acnt_pw_apikey")
        .Set("email", email)
        .Set("passwd", password)
        .Set("serial_no", serial)
        .Set("api_key", apiKey)
        .Set("mac", mac);
    const Verdict verdict = Exchange(op, request, response);
    if (verdict.code != KIVO_ERR_SUCCESS)
      op.Stop(kKeepCode, "Failed to login %s, resp=%s", Redact(email).c_str(), Redact(verdict.body).c_str());
    if (verifyOnly) return 0;
    StoreIdentity(op, IdentityFromReply(op, response));
    RegisterReportJob(op);
    Announce(op, email);
    QueryProfile();
    if (plugins.Run(VLIB_PLUGIN_ACTION_POST) < 0)
      op.Stop(kKeepCode, "VLIBPluginAction failed, action=%u", static_cast<unsigned int>(VLIB_PLUGIN_ACTION_POST));
    return 0;
  });
}

int VARNKIVOAccountLoginByKey(const char* userId, const char* authKey, Json::Value& response) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (!userId || !authKey) op.Stop(KIVO_ERR_BAD_PARAM, "Bad Parameters");
    op.ApiKey();  // only checked: a device without one cannot sign in
    PluginSession plugins(op, kEvent);
    StoreIdentity(op, {userId, authKey});
    Json::Value profile(Json::objectValue);
    if (VARNKIVOAccountQueryInfo(profile, true, true) < 0) {
      LogError(op.source, "VARNKIVOAccountQueryInfo failed");
      VARNKIVOErrSet(KIVO_ERR_AUTH);
      DeleteRecord();  // a wrong key leaves no half-written record behind
      return -1;
    }
    if (!response.isObject()) response = Json::Value(Json::objectValue);
    for (const char* name : {"email", "auth_key", "activated"}) response[name] = profile[name];
    if (plugins.Run(VLIB_PLUGIN_ACTION_POST) < 0)
      op.Stop(kKeepCode, "VLIBPluginAction failed, action=%d", static_cast<int>(VLIB_PLUGIN_ACTION_POST));
    RegisterReportJob(op);
    Announce(op, profile["email"].asString());
    return 0;
  });
}

int VARNKIVOAccountOauthLogin(Json::Value& response, const char* accessToken) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (!accessToken) op.Stop(KIVO_ERR_BAD_PARAM, "Bad Parameters");
    PluginSession plugins(op, kEvent);
    const ServerConfig server = op.ReadServerConfig();
    const std::string serial = op.SerialNumber();
    const std::string mac = op.MacAddress();
    const std::string apiKey = op.ApiKey();
    const std::string language = SystemLanguage();
    const std::string zone = op.TimeZoneName();
    Request request(op, server.account, "good/user/launch");
    request.Set("language", language)
        .Set("access_token", accessToken)
        .Set("timezone", zone)
        .Set("api_key", apiKey)
        .Set("mac", mac)
        .Set("serial_no", serial);
    const Verdict verdict = Exchange(op, request, response);
    if (verdict.code != KIVO_ERR_SUCCESS) op.Stop(kKeepCode, "Failed to login, resp=%s", Redact(verdict.body).c_str());
    const Identity identity = IdentityFromReply(op, response);
    StoreIdentity(op, identity);
    RegisterReportJob(op);
    Announce(op, TextMember(response, "email").value_or(""));
    QueryProfile();
    if (plugins.Run(VLIB_PLUGIN_ACTION_POST) < 0)
      op.Stop(kKeepCode, "VLIBPluginAction failed, action=%u", static_cast<unsigned int>(VLIB_PLUGIN_ACTION_POST));
    return 0;
  });
}
