// The account record behind User: one key, one access to the file, unless all of it was read at once.
#ifndef VARNKIVO_ACCOUNT_USER_IMPL_H_
#define VARNKIVO_ACCOUNT_USER_IMPL_H_

#include "internal/platform_handles.h"

#include <cstdint>
#include <string>

namespace varnkivo {

/// The named accessors are one-line calls of the generic ones with their key and default.
class UserImpl {
 public:
  /// Each getter reads the file.
  UserImpl() = default;
  /// The getters answer from one reading of the file: values that belong together, and one access instead of many.
  static UserImpl Snapshot();

  std::string Get(const char* key, const std::string& fallback) const;
  void Set(const char* key, const std::string& value) const;
  /// Decimal; anything else than a whole number in range reads as the fallback.
  std::int64_t GetNumber(const char* key, std::int64_t fallback) const;
  void SetNumber(const char* key, std::int64_t value) const;
  /// "yes" and "true" are true, other texts false.
  bool GetBool(const char* key, bool fallback) const;
  void SetBool(const char* key, bool value) const;

  bool Exists() const { return !GetEmail().empty(); }

  std::string GetAccountHost() const { return Get("account_host", ""); }
  std::string GetIdentityHost() const { return Get("identity_host", ""); }
  std::string GetEmail() const { return Get("kivoID", ""); }
  std::string GetUserId() const { return Get("kivoIDSerial", ""); }
  std::string GetAuthKey() const { return Get("lu_auth_key", ""); }
  std::string GetName() const { return Get("full_name", ""); }
  std::string GetCountry() const { return Get("country", ""); }
  std::string GetTimezone() const { return Get("timezone", ""); }
  std::string GetNotifyLanguage() const { return Get("notify_language", ""); }
  std::string GetCriticalVersionList() const { return Get("critical_version_list", ""); }
  std::string GetCriticalVersionDomain() const { return Get("critical_version_domain", ""); }
  std::string GetReportCronTimestring() const { return Get("report_cron_timestring", "~ 9~16 * * 1~5"); }
  std::int64_t GetLastQueryTime() const { return GetNumber("last_query_time", 0); }
  bool GetIsActivated() const { return GetBool("activated", false); }
  bool GetIsDisabled() const { return GetBool("disabled", false); }
  bool GetIsEnews() const { return GetBool("enews", false); }
  bool GetIsCriticalRelease() const { return GetBool("critical_release", false); }
  bool GetIsEnewsLocalPromotion() const { return GetBool("enews_local_promotion", false); }
  bool GetIsRealnameValidationPass() const { return GetBool("realname_validation_pass", true); }  // not false

  void SetAccountHost(const std::string& value) const { Set("account_host", value); }
  void SetIdentityHost(const std::string& value) const { Set("identity_host", value); }
  void SetEmail(const std::string& value) const { Set("kivoID", value); }
  void SetUserId(const std::string& value) const { Set("kivoIDSerial", value); }
  void SetAuthKey(const std::string& value) const { Set("lu_auth_key", value); }
  void SetName(const std::string& value) const { Set("full_name", value); }
  void SetCountry(const std::string& value) const { Set("country", value); }
  void SetTimezone(const std::string& value) const { Set("timezone", value); }
  void SetNotifyLanguage(const std::string& value) const { Set("notify_language", value); }
  void SetCriticalVersionList(const std::string& value) const { Set("critical_version_list", value); }
  void SetCriticalVersionDomain(const std::string& value) const { Set("critical_version_domain", value); }
  void SetReportCronTimestring(const std::string& value) const { Set("report_cron_timestring", value); }
  void SetLastQueryTime(std::int64_t value) const { SetNumber("last_query_time", value); }
  void SetIsActivated(bool value) const { SetBool("activated", value); }
  void SetIsDisabled(bool value) const { SetBool("disabled", value); }
  void SetIsEnews(bool value) const { SetBool("enews", value); }
  void SetIsCriticalRelease(bool value) const { SetBool("critical_release", value); }
  void SetIsEnewsLocalPromotion(bool value) const { SetBool("enews_local_promotion", value); }
  void SetIsRealnameValidationPass(bool value) const { SetBool("realname_validation_pass", value); }

 private:
  Hash snapshot_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_ACCOUNT_USER_IMPL_H_
