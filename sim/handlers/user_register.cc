// "device/api/user/register" of the account host: a new account, not activated yet, and not signed in. Requests are
// served one after the other, so nothing comes between the look for the e-mail address and the adding.
#include <algorithm>

#include "sim/device_token.h"
#include "sim/handlers/device_request.h"
#include "sim/random_text.h"
#include "sim/zone_name.h"

namespace kivosim {
namespace {

/// Whoever knows the password of the account that is there already is told what keeps it from use.
std::string CodeForKnown(const Account& account, const std::string& password) {
  return account.password == password && !account.refusal.empty() ? account.refusal : "account_inused";
}

bool IsLimitReached(const std::string& serial, const CloudState& state) {
  const std::vector<Account> accounts = state.Accounts();
  const auto registered = std::count_if(accounts.begin(), accounts.end(),
                                        [&](const Account& account) { return account.registeredBy == serial; });
  return static_cast<std::uint64_t>(registered) >= state.AccountLimit();
}

std::string CheckRegistration(const Request& request, const CloudState& state) {
  const std::string email = request.Param("email"), password = request.Param("passwd");
  if (email.find('@') == std::string::npos || password.empty()) return "badparam";
  if (const std::optional<Account> known = state.Find(email)) return CodeForKnown(*known, password);
  return IsLimitReached(request.Param("serial_no"), state) ? "serial_exceed_max_account_register" : "";
}

Account NewAccount(const Request& request) {
  Account account{request.Param("email"), request.Param("passwd"), "u-" + RandomText(12)};
  account.fullName = request.Param("full_name");
  account.country = request.Param("country");
  account.timezone = request.Param("timezone");
  account.notifyLanguage = request.Param("notify_lang");
  account.activated = false;
  account.realnameValidationPass = false;
  account.criticalRelease = request.Param("critical_release") == "true";
  account.enewsLocalPromotion = request.Param("enews_local_promotion") == "true";
  account.enews = request.Param("enews") == "true";
  account.registeredBy = request.Param("serial_no");
  return account;
}

Reply Answer(const Request& request, CloudState& state) {
  if (request.Param("token") != DeviceToken(request.Param("serial_no"), "", ""))
    return {WordAnswer("badauth"), "\"token\" is wrong"};
  const std::string refusal = CheckRegistration(request, state);
  if (!refusal.empty()) return WordAnswer(refusal);
  state.AddAccount(NewAccount(request));
  return WordAnswer("good");
}

}  // namespace

void AddUserRegister(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kAccount, "/device/api/user/register",
                    DeviceHandler({{"email", Parameter::kMayBeEmpty},
                                   {"passwd", Parameter::kMayBeEmpty},
                                   {"full_name", Parameter::kMayBeEmpty},
                                   {"serial_no"},
                                   {"notify_lang"},
                                   {"token"},
                                   {"timezone", Parameter::kFilled, {}, IsZoneName},
                                   {"critical_release", Parameter::kFilled, {}, IsFlag},
                                   {"enews_local_promotion", Parameter::kFilled, {}, IsFlag},
                                   {"enews", Parameter::kFilled, {}, IsFlag},
                                   {"country", Parameter::kOptional}},
                                  Answer, WordAnswer)});
}

}  // namespace kivosim
