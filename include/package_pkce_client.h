// OAuth 2.0 tokens of an installed package, got on the strength of the device's own sign-in.
#ifndef VARNKIVO_PACKAGE_PKCE_CLIENT_H_
#define VARNKIVO_PACKAGE_PKCE_CLIENT_H_

#include "varnkivo.h"

#include <memory>
#include <string>

namespace varnkivo {

class PackagePkceClientImpl;

/// The package's tokens lie beside the device's own, as PkceClient keeps them, under the package's name; what the
/// account host says about the package is cached for 30 hours in "/tmp/account_NAME_pkce_client.conf". Processes may
/// share a package: three lock files in "/tmp" serialise them, each waited for up to 30 seconds.
///
/// Nobody has to sign in for a package: a device that is signed in is granted the package's tokens. A valid token is
/// handed out without asking anybody. Failures are KivoExceptions: 1 a name or scope that cannot be used, 2 an answer
/// that is not JSON or a file that could not be stored, 5 no usable answer, 6 no random numbers or no user agent, 22 a
/// lock not obtained; and those of PkceClient and of AccountPkceService::GetAccessToken.
class KIVO_API PackagePkceClient {
 public:
  /// `packageName`: as the name of a PkceClient, and not "lum", which is the device's; with another name every call
  /// throws code 1 and touches nothing.
  explicit PackagePkceClient(const std::string& packageName);
  PackagePkceClient(const PackagePkceClient&) = delete;
  PackagePkceClient& operator=(const PackagePkceClient&) = delete;
  virtual ~PackagePkceClient();

  /// A valid token: the stored one, one renewed where that has expired, or a newly granted one where there is none or
  /// the refresh token is refused.
  std::string GetAccessToken() const;
  std::string GetIdToken() const;
  /// Has a new set of tokens granted at once, whatever the age of the stored one.
  void ForceRenewToken() const;

 private:
  std::unique_ptr<PackagePkceClientImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PACKAGE_PKCE_CLIENT_H_
