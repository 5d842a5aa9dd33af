// The verbs of the group `shop`, one function each.
#pragma once

#include "command_line.h"

namespace kivotool {

void AddShopLogin(Verb shop, Invocation& call);
void AddShopItems(Verb shop, Invocation& call);
void AddShopItem(Verb shop, Invocation& call);
void AddShopPurchases(Verb shop, Invocation& call);
void AddShopPageInfo(Verb shop, Invocation& call);

}  // namespace kivotool
