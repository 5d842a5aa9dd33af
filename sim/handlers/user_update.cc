// "device/api/user/update" of the account host: changes the profile of a signed-in account, with the password also its
// e-mail address and the password itself. All of a request is carried out or nothing of it; auth keys stay as they are.
#include <set>
#include <sstream>

#include "sim/handlers/device_request.h"
#include "sim/zone_name.h"

namespace kivosim {
namespace {

/// What no person's input can lead to, only a client's mistake.
std::string CheckTogether(const Request& request) {
  for (const char* name : {"email", "passwd_new", "passwd_confirmation"})
    if (request.HasParam(name) && !request.HasParam("passwd"))
      return "\"" + std::string(name) + "\" without \"passwd\"";
  const bool same = request.Param("passwd_new") == request.Param("passwd_confirmation") &&
                    request.HasParam("passwd_new") == request.HasParam("passwd_confirmation");
  return same ? "" : "\"passwd_confirmation\" is not \"passwd_new\"";
}

std::set<std::string> VersionNames(const std::string& list) {
  std::set<std::string> names;
  std::istringstream text(list);
  for (std::string name; std::getline(text, name, ',');) names.insert(name);
  return names;
}

bool AreVersionsOf(const Account& account, const std::string& list) {
  for (const std::string& name : VersionNames(list))
    if (account.criticalVersionList.count(name) == 0) return false;
  return true;
}

std::string CheckEmail(const Account& account, const std::string& email, const CloudState& state) {
  if (email.find('@') == std::string::npos) return "badparam";
  const std::optional<Account> holder = state.Find(email);
  return holder && holder->userId != account.userId ? "account_inused" : "";
}

std::string CheckUpdate(const Request& request, const Account& account, const CloudState& state) {
  if (request.HasParam("passwd") && request.Param("passwd") != account.password) return "badauth";
  if (request.HasParam("passwd_new") && request.Param("passwd_new").empty()) return "badparam";
  if (!AreVersionsOf(account, request.Param("critical_version_list"))) return "badparam";
  return request.HasParam("email") ? CheckEmail(account, request.Param("email"), state) : "";
}

void Apply(const Request& request, Account& account) {
  const auto text = [&](const char* name, std::string& target) {
    if (request.HasParam(name)) target = request.Param(name);
  };
  const auto flag = [&](const char* name, bool& target) {
    if (request.HasParam(name)) target = request.Param(name) == "true";
  };
  text("full_name", account.fullName);
  text("email", account.email);
  text("passwd_new", account.password);
  text("country", account.country);
  text("notify_lang", account.notifyLanguage);
  text("timezone", account.timezone);
  flag("enews", account.enews);
  flag("critical_release", account.criticalRelease);
  flag("enews_local_promotion", account.enewsLocalPromotion);
  if (!request.HasParam("critical_version_list")) return;
  const std::set<std::string> wanted = VersionNames(request.Param("critical_version_list"));
  for (auto& [name, isWanted] : account.criticalVersionList) isWanted = wanted.count(name) != 0;
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string problem = CheckTogether(request);
  if (!problem.empty()) return {WordAnswer(request.HasParam("passwd") ? "badparam" : "badauth"), problem};
  std::string refusal = CheckHolder(request, state);
  if (!refusal.empty()) return WordAnswer(refusal);
  const std::optional<Account> account = state.Find(request.Param("id"));
  refusal = account ? CheckUpdate(request, *account, state) : "account_not_found";
  if (!refusal.empty()) return WordAnswer(refusal);
  state.Change(account->userId, [&](Account& changed) { Apply(request, changed); });
  return WordAnswer("good");
}

std::vector<Parameter> Parameters() {
  std::vector<Parameter> all = {{"id", Parameter::kMayBeEmpty}, {"auth_key", Parameter::kMayBeEmpty}, {"serial_no"}};
  for (const char* name :
       {"full_name", "passwd", "email", "passwd_new", "passwd_confirmation", "country", "notify_lang"})
    all.push_back({name, Parameter::kOptional});
  all.push_back({"timezone", Parameter::kOptional, {}, IsZoneName});
  for (const char* name : {"enews", "critical_release", "enews_local_promotion"})
    all.push_back({name, Parameter::kOptional, {}, IsFlag});
  all.push_back({"critical_version_list", Parameter::kOptional});
  return all;
}

}  // namespace

void AddUserUpdate(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/device/api/user/update", DeviceHandler(Parameters(), Answer, WordAnswer)});
}

}  // namespace kivosim
