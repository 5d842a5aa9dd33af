// Sends to the shop and takes its answers apart. Touches nothing on the device. A status of 400 comes with an answer
// too, so that only "code" tells a success; nothing of an answer is printed but by Utf8 or Printable.
#include "shop_answer.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include "output.h"
#include "spinner.h"
#include "text.h"
#include "text_table.h"

namespace kivotool {
namespace {

constexpr double kCentsAreExactBelow = 1e13;

bool ParseStrictly(const char* body, Json::Value& out) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    std::string errors;
    return reader->parse(body, body + std::strlen(body), &out, &errors);
  } catch (const Json::Exception&) {  // nested too deeply
    return false;
  }
}

const Json::Value& Member(const Json::Value& object, const char* name, const Situation& situation) {
  if (!object.isObject()) throw WrongAnswer(situation);
  return object[name];
}

}  // namespace

void CheckShopValue(const std::string& what, const std::string& value, std::size_t most, const char* help) {
  if (value.size() > most)
    throw UsageFailure(what + " cannot be longer than " + std::to_string(most) + " bytes.", help);
  if (HasControls(value)) throw UsageFailure(what + " cannot hold control characters.", help);
}

Failure WrongAnswer(const Situation& situation) { return Explain(KIVO_ERR_RESPONSE, situation); }

Json::Value ParseShopAnswer(const ShopResponse& response, const Situation& situation) {
  Json::Value answer;
  if (!ParseStrictly(response.body ? response.body : "", answer)) throw Explain(KIVO_ERR_BAD_JSON, situation);
  const Json::Value& code = Member(answer, "code", situation);
  if (!code.isString()) throw WrongAnswer(situation);
  Situation answered = situation;
  answered.serverAnswer = code.asString();
  const int meaning = GetErrorCodeFromAccountError(answered.serverAnswer.c_str());
  if (meaning != KIVO_ERR_SUCCESS) throw Explain(meaning, answered);
  return answer;
}

Json::Value AskShop(PAYMENT_ACTION action, Json::Value args, const std::string& language, const Situation& situation,
                    bool json) {
  if (!language.empty()) args["language"] = language;
  ShopResponse response;
  {
    const Spinner spinner("Asking the shop", kShopSeconds, !json);
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (VARNPaymentHTTPSSendWithJSON(action, args, &response) != 0) throw Explain(VARNKIVOErrGet(), situation);
  }
  return ParseShopAnswer(response, situation);
}

std::string ShopText(const Json::Value& object, const char* name, const Situation& situation) {
  const Json::Value& value = Member(object, name, situation);
  if (value.isNull()) return "";
  if (!value.isString() && !value.isNumeric()) throw WrongAnswer(situation);
  return value.asString();
}

double ShopPrice(const Json::Value& object, const char* name, const Situation& situation) {
  const Json::Value& value = Member(object, name, situation);
  if (!value.isNumeric() || !std::isfinite(value.asDouble())) throw WrongAnswer(situation);
  return value.asDouble();
}

std::vector<ShopItem> ShopItems(const Json::Value& answer, const Situation& situation) {
  if (!answer["items"].isArray()) throw WrongAnswer(situation);
  std::vector<ShopItem> items;
  for (const Json::Value& entry : answer["items"]) {
    items.push_back({ShopText(entry, "app", situation), ShopText(entry, "item", situation),
                     ShopText(entry, "title", situation), ShopText(entry, "currency", situation),
                     ShopPrice(entry, "price", situation)});
  }
  return items;
}

Json::Value ItemsJson(const std::vector<ShopItem>& items) {
  Json::Value list(Json::arrayValue);
  for (const ShopItem& item : items) {
    Json::Value& entry = list.append(Json::Value(Json::objectValue));
    entry["app"] = TextOrNull(item.app);
    entry["item"] = TextOrNull(item.item);
    entry["title"] = TextOrNull(item.title);
    entry["price"] = item.price;
    entry["currency"] = TextOrNull(item.currency);
  }
  return list;
}

void PrintItems(const std::vector<ShopItem>& items) {
  TextTable table({"Application", "Item", "Title", ">Price", "Currency"});
  for (const ShopItem& item : items) table.Add({item.app, item.item, item.title, PriceText(item.price), item.currency});
  table.Print();
}

std::string PriceText(double price) {
  char text[64];
  const bool exact = std::fabs(price) < kCentsAreExactBelow && std::fabs(price * 100 - std::round(price * 100)) < 1e-4;
  std::snprintf(text, sizeof text, exact ? "%.2f" : "%.15g", price);
  return text;
}

}  // namespace kivotool
