// "api/auth.php" of the payment host: says whether an e-mail address and the digest of a password are right. The two
// come twice, once as what every device request may carry and once as this call's own, and have to be the same.
#include "sim/digest.h"
#include "sim/handlers/device_request.h"
#include "sim/handlers/shop.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

std::string CheckTwins(const Request& request) {
  for (const auto& [name, value] : request.form)
    if ((name == "kivoID" || name == "kivoPW") && value != request.Param(name)) return "two values of \"" + name + "\"";
  return "";
}

Reply Answer(const Request& request, CloudState& state) {
  const std::string problem = CheckTwins(request);
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  const std::string refusal = CheckShopper(request, state);
  if (!refusal.empty()) return CodeAnswer(refusal);
  Json::Value answer;
  answer["code"] = "good";
  answer["email"] = request.Param("kivoID");
  return Response{200, JsonText(answer)};
}

}  // namespace

std::string CheckShopper(const Request& request, const CloudState& state) {
  const std::string email = request.Param("kivoID");
  const std::optional<Account> account = state.Find(email);
  if (!account || account->email != email || Md5Hex(account->password) != request.Param("kivoPW")) return "badauth";
  return account->refusal;
}

void AddShopSignIn(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kPayment, "/api/auth.php",
                    DeviceHandler({{"kivoID"}, {"kivoPW"}, {"language", Parameter::kOptional}}, Answer)});
}

}  // namespace kivosim
