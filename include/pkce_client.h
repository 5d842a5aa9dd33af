// OAuth 2.0 tokens of one named client of the identity host: kept on disk, renewed when they have expired.
#ifndef VARNKIVO_PKCE_CLIENT_H_
#define VARNKIVO_PKCE_CLIENT_H_

#include "varnkivo.h"

#include <json/json.h>

#include <memory>
#include <string>

namespace varnkivo {

class AccountPkceServiceImpl;
class PackagePkceClientImpl;
class PkceClientImpl;

/// The token set lies in "/usr/varn/etc/varnholt-account/private/NAME_token.json" (0600, owner 934:934): the token
/// endpoint's answer and "created_at", seconds since the epoch. Processes may share a client: files
/// "/tmp/account_NAME_get_token.lock" and the like serialise them, each waited for up to 30 seconds. Under another
/// effective id than 0 and 934 an access raises the effective ids of the whole process to 0 and restores them.
///
/// Failures are KivoExceptions: 1 a name or value that cannot be used, 2 not JSON or not stored, 5 no usable answer,
/// 6 ids not raised for a save, or no user agent, 14 the refresh token was refused, 22 no token file (or none that this
/// user may read), a member missing, or a lock not obtained. A failed renewal leaves the token file as it was; one
/// whose answer has all three tokens is stored, whatever else is wrong with it.
class KIVO_API PkceClient {
 public:
  /// `name`: 1 to 128 of A-Z a-z 0-9 . _ -, not starting with a dot; under another name everything that would touch the
  /// file fails.
  explicit PkceClient(const std::string& name);
  PkceClient(const PkceClient&) = delete;
  PkceClient& operator=(const PkceClient&) = delete;
  virtual ~PkceClient();

  /// What FormatPkceConfig gives. The getters and ExchangeToken need it. To be set before threads share the object.
  void SetPkceConfig(const Json::Value& config);
  /// Whether the token file can be opened for reading.
  bool HasTokenFile() const;
  /// A valid token, after a renewal (RFC 6749, section 6) where the stored one has expired. A token counts as valid up
  /// to and in the second created_at + expires_in. Throws std::bad_cast, too, where one of these is no 32-bit number.
  std::string GetAccessToken() const;
  std::string GetIdToken() const;
  /// Trades an authorization code for a token set (RFC 6749, section 4.1.3; RFC 7636, section 4.5) and stores it.
  void ExchangeToken(const std::string& code, const std::string& codeVerifier, const std::string& redirectUri) const;
  /// A configuration from a template: "client_id", "scope" with $sn$ and $mac$ filled in, "audience", and URLs made of
  /// this device's hosts and the template's paths. A missing member reads as empty.
  Json::Value FormatPkceConfig(const Json::Value& tmpl) const;

 private:
  friend class AccountPkceServiceImpl;
  friend class PackagePkceClientImpl;

  std::unique_ptr<PkceClientImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_CLIENT_H_
