// The account operations as an object: two hosts, and the exported functions with exceptions instead of results.
#ifndef VARNKIVO_ACCOUNT_SERVICE_H_
#define VARNKIVO_ACCOUNT_SERVICE_H_

#include "varnkivo.h"

#include <json/json.h>

#include <memory>
#include <string>

namespace varnkivo {

class AccountServiceImpl;

/// Hosts are a scheme and a host, to which paths are appended as they stand.
class KIVO_API AccountService {
 public:
  /// The hosts that ServerInfo gives.
  AccountService();
  /// An empty host stands for ServerInfo's.
  AccountService(const std::string& accountHost, const std::string& identityHost);
  AccountService(const AccountService&) = delete;
  AccountService& operator=(const AccountService&) = delete;
  virtual ~AccountService();

  std::string GetAccountHost() const;
  std::string GetIdentityHost() const;
  /// VARNKIVOAccountLogin: signs in and gives the server's answer. Throws KivoException with that function's code.
  Json::Value Login(const std::string& email, const std::string& password) const;
  /// The account's profile after asking the server where the stored one is 5 minutes old. Any failure, a lack of
  /// network included, signs the device out: the account record is deleted. Throws KivoException with the query's code,
  /// which is 0 when another process held the query for 30 seconds.
  Json::Value GetAndSyncRemoteJsonAccount() const;
  /// The profile as stored, after asking the server where it is a day old. Deletes nothing. Throws as above.
  Json::Value GetLocalJsonAccount() const;
  /// Registers the report job anew, or only removes it where the administrator has switched reports off. Never throws
  /// KivoException: a failure is logged.
  void SetReportCrontab() const;

 private:
  std::unique_ptr<AccountServiceImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_ACCOUNT_SERVICE_H_
