// The device's own sign-in by OAuth 2.0 with PKCE, and the tokens that follow from it for months.
#ifndef VARNKIVO_ACCOUNT_PKCE_SERVICE_H_
#define VARNKIVO_ACCOUNT_PKCE_SERVICE_H_

#include "varnkivo.h"

#include <json/json.h>

#include <memory>
#include <string>

namespace varnkivo {

class AccountPkceServiceImpl;

/// What a finished browser login gives.
struct ParamPkceLogin {
  std::string label;         ///< the caller's own; not read
  std::string code;          ///< the authorization code
  std::string codeVerifier;  ///< the verifier whose challenge the authorization request had (RFC 7636)
  std::string redirectUri;   ///< that of the authorization request
};

/// Owns the token client "lum". Failures are KivoExceptions with the codes of PkceClient; 8 and 20, construction
/// included, where serial number or MAC cannot be read; 1 for a scope that cannot be split; and those of the record (6,
/// 19) and of the account query where these are part of the call.
class KIVO_API AccountPkceService {
 public:
  /// The hosts that ServerInfo gives. Throws KivoException 2 when
  /// "/usr/varn/etc.defaults/varnholt-account/config/pkce_login.conf" cannot be read.
  AccountPkceService();
  /// An empty host stands for ServerInfo's. The token endpoints always lie on ServerInfo's identity host: the hosts
  /// given here are those of the account centre's own requests.
  AccountPkceService(const std::string& accountHost, const std::string& identityHost);
  AccountPkceService(const AccountPkceService&) = delete;
  AccountPkceService& operator=(const AccountPkceService&) = delete;
  virtual ~AccountPkceService();

  /// What an authorization request is made of: "client_id", "scope", "audience", "auth_endpoint",
  /// "login_redirect_uri"...
  Json::Value GetLoginPkceConfig() const;
  /// The same for the registration of a new account.
  Json::Value GetRegisterPkceConfig() const;
  /// Signs the device in and returns the account's profile. A failure stops where it happened; nothing done before it
  /// is undone.
  Json::Value Login(const ParamPkceLogin& param) const;
  /// Whether GetAccessToken gives one: false for code 22, other failures are thrown.
  bool HasToken() const;
  /// A valid token. Where there is none, or the refresh token is refused, a new set is granted to the stored auth key;
  /// where that fails too, the device is signed out.
  std::string GetAccessToken() const;
  std::string GetIdToken() const;
  /// Tells the account host, then clears what the device knows of the account. A refusal leaves every file in place and
  /// throws its code. The host is sent an access token: where none can be had, that failure is thrown and nothing is
  /// sent, and a rescue that fails on the way has signed the device out already, which ends in 22.
  void Logout() const;
  /// Clears record, report job and every "*_token.json", each whatever became of the others. A part that stays
  /// is logged, and nothing thrown for it. The job goes only for callers who are root.
  void LogoutLocal() const;

 private:
  std::unique_ptr<AccountPkceServiceImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_ACCOUNT_PKCE_SERVICE_H_
