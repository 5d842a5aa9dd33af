// Answers with the signed-in account's profile from the record, after refreshing it from the account host when it is
// old. Touches the record under the lock "query_info", and removes it when the server refuses the auth key.
// Nothing of an answer is stored before all of it has been converted; the query time goes last.
#include "file_lock.h"
#include "internal/json_utils.h"
#include "internal/operation.h"
#include "internal/redact.h"
#include "internal/string_utils.h"
#include "user.h"
#include "user_impl.h"
#include "varnkivo.h"

#include <json/json.h>
#include <boost/algorithm/string/join.hpp>

#include <cstdint>
#include <ctime>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_account_query_info";
constexpr unsigned int kLockSeconds = 30;
constexpr std::uint64_t kOneDay = 86399, kFiveMinutes = 300;  // seconds

constexpr const char* kRequiredMembers[] = {"code",
                                            "email",
                                            "full_name",
                                            "country",
                                            "timezone",
                                            "notify_language",
                                            "activated",
                                            "disabled",
                                            "enews",
                                            "critical_release",
                                            "enews_local_promotion",
                                            "critical_version_list"};

/// An answer, converted.
struct Profile {
  std::string email, name, country, timezone, notifyLanguage, criticalVersionList, criticalVersionDomain;
  bool activated, disabled, enews, enewsLocalPromotion, criticalRelease, realnameValidationPass;
  std::optional<std::string> reportCronTimestring, accountHost, identityHost;  // only what the server sent
};

bool NeedsRefresh(std::int64_t now, std::int64_t lastQuery, bool forced) {
  const auto a = static_cast<std::uint64_t>(now), b = static_cast<std::uint64_t>(lastQuery);
  const std::uint64_t age = now > lastQuery ? a - b : b - a;  // far in the future counts as old too
  return age > kOneDay || (forced && age >= kFiveMinutes);
}

[[noreturn]] void StopForInsufficientData(const Operation& op, const Json::Value& answer, int line) {
  op.Stop({KIVO_ERR_RESPONSE, line}, "Server returned insufficient data. resp=%s",
          Redact(answer.toStyledString()).c_str());
}

void CheckMembers(const Operation& op, const Json::Value& answer) {
  for (const char* name : kRequiredMembers)
    if (!HasMember(answer, name)) StopForInsufficientData(op, answer, __LINE__);
}

/// Converts members of one answer; a value of the wrong kind stops the operation.
class Converter {
 public:
  Converter(const Operation& op, const Json::Value& answer) : op_(op), answer_(answer) {}

  std::string Text(const char* name) const {
    const std::optional<std::string> text = TextMember(answer_, name);
    if (!text) StopForInsufficientData(op_, answer_, __LINE__);
    return *text;
  }
  std::optional<std::string> TextIfPresent(const char* name) const {
    return answer_.isMember(name) ? std::optional<std::string>(Text(name)) : std::nullopt;
  }
  bool Bool(const Json::Value& value) const {
    const std::optional<bool> flag = ToBool(value);
    if (!flag) StopForInsufficientData(op_, answer_, __LINE__);
    return *flag;
  }
  bool Bool(const char* name) const { return Bool(answer_[name]); }
  bool BoolIfPresent(const char* name) const { return answer_.isMember(name) && Bool(name); }

  /// "critical_version_list" as all its names (the domain) and those that are true (the list), joined by commas.
  void VersionList(std::string& list, std::string& domain) const {
    const Json::Value& versions = answer_["critical_version_list"];
    if (versions.isNull() || (versions.isArray() && versions.empty())) return;  // some servers' empty map
    if (!versions.isObject()) StopForInsufficientData(op_, answer_, __LINE__);
    std::vector<std::string> chosen;
    const std::vector<std::string> names = versions.getMemberNames();
    for (const std::string& name : names) {
      if (name.find('\0') != std::string::npos) StopForInsufficientData(op_, answer_, __LINE__);
      if (Bool(versions[name])) chosen.push_back(name);
    }
    domain = boost::algorithm::join(names, ",");
    list = boost::algorithm::join(chosen, ",");
  }

 private:
  const Operation& op_;
  const Json::Value& answer_;
};

Profile Convert(const Operation& op, const Json::Value& answer) {
  const Converter from(op, answer);
  Profile profile;
  profile.email = from.Text("email");
  profile.name = from.Text("full_name");
  profile.country = from.Text("country");
  profile.timezone = from.Text("timezone");
  profile.notifyLanguage = from.Text("notify_language");
  profile.activated = from.Bool("activated");
  profile.disabled = from.Bool("disabled");
  profile.enews = from.Bool("enews");
  profile.enewsLocalPromotion = from.Bool("enews_local_promotion");
  profile.criticalRelease = from.Bool("critical_release");
  from.VersionList(profile.criticalVersionList, profile.criticalVersionDomain);
  profile.realnameValidationPass = from.BoolIfPresent("realname_validation_pass");
  profile.reportCronTimestring = from.TextIfPresent("report_cron_timestring");
  profile.accountHost = from.TextIfPresent("account_host");
  profile.identityHost = from.TextIfPresent("identity_host");
  return profile;
}

void Store(const Profile& profile, std::int64_t now) {
  const User user;
  user.SetEmail(profile.email);
  user.SetName(profile.name);
  user.SetCountry(profile.country);
  user.SetTimezone(profile.timezone);
  user.SetNotifyLanguage(profile.notifyLanguage);
  user.SetIsActivated(profile.activated);
  user.SetIsDisabled(profile.disabled);
  user.SetIsEnews(profile.enews);
  user.SetIsEnewsLocalPromotion(profile.enewsLocalPromotion);
  user.SetIsCriticalRelease(profile.criticalRelease);
  user.SetCriticalVersionList(profile.criticalVersionList);
  user.SetCriticalVersionDomain(profile.criticalVersionDomain);
  user.SetIsRealnameValidationPass(profile.realnameValidationPass);
  if (profile.reportCronTimestring) user.SetReportCronTimestring(*profile.reportCronTimestring);
  if (profile.accountHost) user.SetAccountHost(*profile.accountHost);
  if (profile.identityHost) user.SetIdentityHost(*profile.identityHost);
  user.SetLastQueryTime(now);
}

void Refresh(const Operation& op, const _tag_kivo_INFO_& account, bool quick) {
  const ServerConfig server = op.ReadServerConfig();
  const std::string serial = op.SerialNumber();
  Request request(op, server.account, "device/api/user/query");
  request.Set("id", account.userId).Set("auth_key", account.authKey).Set("serial_no", serial).Quick(quick);
  const char* body = request.Send();
  Json::Value answer;
  if (!ParseJson(body, answer)) op.Stop(KIVO_ERR_BAD_JSON, "Failed to parse json: %s", Redact(body).c_str());
  if (HasMember(answer, "code") && answer["code"] == "badauth") {  // all of it: one with a tail is an ordinary refusal
    LogError(op.source, "Logged out Kivo due to authentication failure.");
    VARNKIVOAccountRemove();
    VARNKIVOErrSet(KIVO_ERR_NO_ACCOUNT);
    throw Stopped{};
  }
  CheckMembers(op, answer);
  const int code = MapLibKivoCenterErrorCode(StringOrNull(answer, "code"));
  if (code != KIVO_ERR_SUCCESS)
    op.Stop(kKeepCode, "Failed to query %s, resp=%s, code=%u", Redact(account.userId).c_str(), Redact(body).c_str(),
            static_cast<unsigned int>(code));
  Store(Convert(op, answer), time(nullptr));
}

void Fill(Json::Value& out) {
  const UserImpl user = UserImpl::Snapshot();
  Json::Value profile = out.isObject() ? out : Json::Value(Json::objectValue);
  profile["auth_key"] = user.GetAuthKey();
  profile["email"] = user.GetEmail();
  profile["full_name"] = user.GetName();
  profile["country"] = user.GetCountry();
  profile["timezone"] = user.GetTimezone();
  profile["notify_language"] = user.GetNotifyLanguage();
  profile["activated"] = user.GetIsActivated();
  profile["disabled"] = user.GetIsDisabled();
  profile["enews"] = user.GetIsEnews();
  profile["critical_release"] = user.GetIsCriticalRelease();
  profile["enews_local_promotion"] = user.GetIsEnewsLocalPromotion();
  out.swap(profile);
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountQueryInfo(Json::Value& out, bool forceRefresh, bool shortTimeout) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    FileLock lock(format("/tmp/account_%s.lock", "query_info"));
    if (!lock.Lock(kLockSeconds)) op.Stop(kKeepCode, "Failed to lock file: %s", lock.GetPath().c_str());
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    AccountCopy account;
    if (VARNKIVOAccountGet(&account) < 0) return -1;  // 3 in the slot where nobody is signed in
    if (NeedsRefresh(time(nullptr), User().GetLastQueryTime(), forceRefresh)) Refresh(op, account, shortTimeout);
    Fill(out);
    return 0;
  });
}
