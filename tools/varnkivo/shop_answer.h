// What the shop says, taken apart with suspicion: its answers are texts from outside, and become either the values that
// a verb asked for or a Failure.
#pragma once

#include <json/json.h>
#include <varnkivo/varnkivo.h>

#include <string>
#include <vector>

#include "failure.h"

namespace kivotool {

constexpr int kShopSeconds = 3 * 120 + 2;  ///< a request's limit: three attempts

/// Bytes. A catalogue's request is one address of 4095 bytes, with up to three for each of a text.
constexpr std::size_t kMostInName = 256, kMostInLanguage = 32;

/// Owns the body.
struct ShopResponse : _tag_libkivo_varn_response_ {
  ShopResponse() : _tag_libkivo_varn_response_{} {}
  ShopResponse(const ShopResponse&) = delete;
  ShopResponse& operator=(const ShopResponse&) = delete;
  ~ShopResponse() { VARNKIVOHttpsResponseFree(this); }
};

/// Throws a usage Failure where `value` has more than `most` bytes, or a control character.
void CheckShopValue(const std::string& what, const std::string& value, std::size_t most, const char* help);
/// The answer as an object whose "code" is a success. Throws the Failure of anything else.
Json::Value ParseShopAnswer(const ShopResponse& response, const Situation& situation);
/// Asks for `action`, with `language` as far as it is not empty. Throws Failure.
Json::Value AskShop(PAYMENT_ACTION action, Json::Value args, const std::string& language, const Situation& situation,
                    bool json);

/// The failure of an answer that has not what it should.
Failure WrongAnswer(const Situation& situation);
/// A text, or a number as a text; empty for null and what is not there. Anything else is a wrong answer.
std::string ShopText(const Json::Value& object, const char* name, const Situation& situation);
/// A number that is finite; a wrong answer otherwise.
double ShopPrice(const Json::Value& object, const char* name, const Situation& situation);

struct ShopItem {
  std::string app, item, title, currency;
  double price = 0;
};
/// "items" of an answer.
std::vector<ShopItem> ShopItems(const Json::Value& answer, const Situation& situation);
Json::Value ItemsJson(const std::vector<ShopItem>& items);
void PrintItems(const std::vector<ShopItem>& items);

/// With two decimals, unless that would change it.
std::string PriceText(double price);

}  // namespace kivotool
