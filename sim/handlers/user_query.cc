// "device/api/user/query" of the account host: the profile of a signed-in account. Changes nothing.
#include "sim/handlers/device_request.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

Json::Value Profile(const Account& account) {
  Json::Value profile;
  profile["code"] = "good";
  profile["email"] = account.email;
  profile["full_name"] = account.fullName;
  profile["country"] = account.country;
  profile["timezone"] = account.timezone;
  profile["notify_language"] = account.notifyLanguage;
  profile["activated"] = account.activated;
  profile["disabled"] = account.disabled;
  profile["enews"] = account.enews;
  profile["critical_release"] = account.criticalRelease;
  profile["enews_local_promotion"] = account.enewsLocalPromotion;
  profile["critical_version_list"] = Json::Value(Json::objectValue);
  for (const auto& [name, wanted] : account.criticalVersionList) profile["critical_version_list"][name] = wanted;
  if (account.realnameValidationPass) profile["realname_validation_pass"] = *account.realnameValidationPass;
  if (account.reportCronTimestring) profile["report_cron_timestring"] = *account.reportCronTimestring;
  if (account.accountHost) profile["account_host"] = *account.accountHost;
  if (account.identityHost) profile["identity_host"] = *account.identityHost;
  return profile;
}

Response Answer(const Request& request, CloudState& state) {
  const std::string refusal = CheckHolder(request, state);
  if (!refusal.empty()) return CodeAnswer(refusal);
  const std::optional<Account> account = state.Find(request.Param("id"));
  return account ? Response{200, JsonText(Profile(*account))} : CodeAnswer("account_not_found");
}

}  // namespace

void AddUserQuery(std::vector<Route>& routes) {
  routes.push_back(
      {HostFamily::kAccount, "/device/api/user/query",
       DeviceHandler({{"id", Parameter::kMayBeEmpty}, {"auth_key", Parameter::kMayBeEmpty}, {"serial_no"}}, Answer)});
}

}  // namespace kivosim
