// "api/query.php" of the payment host: what the signed-in account has bought, as far as the filters let it through. An
// empty filter lets everything through. Changes nothing.
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "sim/account_json.h"
#include "sim/handlers/device_request.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

bool IsDay(const std::string& text) {
  const std::string form = "dddd-dd-dd";
  for (std::size_t i = 0; i < form.size(); ++i)
    if (text.size() != form.size() ||
        (form[i] == 'd' ? !std::isdigit(static_cast<unsigned char>(text[i])) : text[i] != '-'))
      return false;
  return true;
}

/// "FROM,TO", either of which may be empty.
struct Range {
  explicit Range(const std::string& text) : from(text.substr(0, text.find(','))) {
    if (text.size() > from.size()) to = text.substr(from.size() + 1);
  }
  bool Has(const std::string& day) const { return day >= from && (to.empty() || day <= to); }
  std::string from, to;
};

bool IsRange(const std::string& text) {
  const Range range(text);
  const auto isBound = [](const std::string& bound) { return bound.empty() || IsDay(bound); };
  return text.find(',') != std::string::npos && isBound(range.from) && isBound(range.to);
}

template <class Matches>
bool Passes(const std::string& filter, Matches matches) {
  std::istringstream words(filter);
  for (std::string word; std::getline(words, word, ',');)
    if (matches(word)) return true;
  return filter.empty();
}

bool IsWanted(const Purchase& purchase, const Request& request) {
  const auto is = [](const std::string& value) { return [&value](const std::string& word) { return word == value; }; };
  const auto costs = [&](const std::string& word) {
    char* end = nullptr;
    return std::fabs(std::strtod(word.c_str(), &end) - purchase.price) < 0.005 && end != word.c_str() && *end == '\0';
  };
  return Range(request.Param("dates")).Has(purchase.createAt.substr(0, 10)) &&
         Passes(request.Param("apps"), is(purchase.app)) && Passes(request.Param("serials"), is(purchase.serial)) &&
         Passes(request.Param("prices"), costs) && Passes(request.Param("paypals"), is(purchase.paypalId));
}

Response Answer(const Request& request, CloudState& state) {
  const std::string refusal = CheckHolder(request, state);
  const std::optional<Account> account = state.Find(request.Param("id"));
  if (!refusal.empty() || !account) return CodeAnswer(refusal.empty() ? "account_not_found" : refusal);
  Json::Value answer;
  answer["code"] = "good";
  answer["entries"] = Json::Value(Json::arrayValue);
  for (const Purchase& purchase : account->purchases)
    if (IsWanted(purchase, request)) answer["entries"].append(PurchaseToJson(purchase));
  return {200, JsonText(answer)};
}

}  // namespace

void AddShopHistory(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kPayment, "/api/query.php",
                    DeviceHandler({{"action", Parameter::kFilled, "get_history"},
                                   {"id", Parameter::kMayBeEmpty},
                                   {"auth_key", Parameter::kMayBeEmpty},
                                   {"serial_no"},
                                   {"language"},
                                   {"dates", Parameter::kOptional, {}, IsRange},
                                   {"apps", Parameter::kOptional},
                                   {"serials", Parameter::kOptional},
                                   {"prices", Parameter::kOptional},
                                   {"paypals", Parameter::kOptional}},
                                  Answer)});
}

}  // namespace kivosim
