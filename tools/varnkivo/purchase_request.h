// What `shop purchases` asks the shop, and the answer's rows as they came.
#pragma once

#include <json/json.h>

#include <optional>
#include <string>
#include <vector>

#include "failure.h"

namespace kivotool {

struct PurchaseQuery {
  std::optional<std::string> from, to;  ///< days
  std::string language;
  std::vector<std::string> apps, serials, prices, payers;  ///< without commas; empty: any
};

/// "entries" of the answer, an array whose elements nobody has looked at. Throws Failure.
Json::Value AskForPurchases(const PurchaseQuery& query, const Situation& situation, bool json);

}  // namespace kivotool
