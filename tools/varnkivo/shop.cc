// `shop`: the group of verbs about the shop, which is the payment host. No state of its own.
#include "shop_verbs.h"

namespace kivotool {

void AddShop(CLI::App& app, Invocation& call) {
  CLI::App* shop = app.add_subcommand("shop", "The shop: what it sells, and what the account has bought");
  shop->require_subcommand(1);
  shop->footer("Example:\n  varnkivo shop purchases");
  AddShopLogin(*shop, call);
  AddShopItems(*shop, call);
  AddShopItem(*shop, call);
  AddShopPurchases(*shop, call);
  AddShopPageInfo(*shop, call);
}

}  // namespace kivotool
