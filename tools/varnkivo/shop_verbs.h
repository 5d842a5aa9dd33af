// The verbs of the group `shop`, one function each.
#pragma once

#include "command_line.h"

namespace kivotool {

void AddShopLogin(CLI::App& shop, Invocation& call);
void AddShopItems(CLI::App& shop, Invocation& call);
void AddShopItem(CLI::App& shop, Invocation& call);
void AddShopPurchases(CLI::App& shop, Invocation& call);
void AddShopPageInfo(CLI::App& shop, Invocation& call);

}  // namespace kivotool
