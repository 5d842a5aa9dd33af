// The account record: who is signed in on this device, and the profile last seen.
#ifndef VARNKIVO_USER_H_
#define VARNKIVO_USER_H_

#include "varnkivo.h"

#include <cstdint>
#include <memory>
#include <string>

namespace varnkivo {

class UserImpl;

/// Reads and writes "/usr/varn/etc/varnholt-account/private/user.conf" (0600, owner 934:934) directly: nothing is kept
/// in memory, processes see each other's writes at once, one key is one atomic write. Under another effective id than 0
/// and 934 each access raises the effective ids of the whole process to 0 and restores them.
/// A missing file, key or value reads as the default: empty, false, 0, unless noted. A text longer than 2047 bytes
/// reads back cut. Getters throw KivoException 6 when the ids cannot be raised; setters also 19 when the write fails.
class KIVO_API User {
 public:
  User();
  User(const User&) = delete;
  User& operator=(const User&) = delete;
  virtual ~User();

  /// Whether an account is signed in: the record has an e-mail.
  bool Exists() const;

  std::string GetAccountHost() const;
  std::string GetIdentityHost() const;
  std::string GetEmail() const;
  std::string GetUserId() const;
  std::string GetAuthKey() const;
  std::string GetName() const;
  std::string GetCountry() const;
  std::string GetTimezone() const;
  std::string GetNotifyLanguage() const;
  std::string GetCriticalVersionList() const;
  std::string GetCriticalVersionDomain() const;
  std::string GetReportCronTimestring() const;  ///< default "~ 9~16 * * 1~5"
  std::int64_t GetLastQueryTime() const;        ///< seconds since the epoch
  bool GetIsActivated() const;
  bool GetIsDisabled() const;
  bool GetIsEnews() const;
  bool GetIsCriticalRelease() const;
  bool GetIsEnewsLocalPromotion() const;
  bool GetIsRealnameValidationPass() const;  ///< default true

  void SetAccountHost(const std::string& value) const;
  void SetIdentityHost(const std::string& value) const;
  void SetEmail(const std::string& value) const;
  void SetUserId(const std::string& value) const;
  void SetAuthKey(const std::string& value) const;
  void SetName(const std::string& value) const;
  void SetCountry(const std::string& value) const;
  void SetTimezone(const std::string& value) const;
  void SetNotifyLanguage(const std::string& value) const;
  void SetCriticalVersionList(const std::string& value) const;
  void SetCriticalVersionDomain(const std::string& value) const;
  void SetReportCronTimestring(const std::string& value) const;
  void SetLastQueryTime(std::int64_t value) const;
  void SetIsActivated(bool value) const;
  void SetIsDisabled(bool value) const;
  void SetIsEnews(bool value) const;
  void SetIsCriticalRelease(bool value) const;
  void SetIsEnewsLocalPromotion(bool value) const;
  void SetIsRealnameValidationPass(bool value) const;

 private:
  std::unique_ptr<UserImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_USER_H_
