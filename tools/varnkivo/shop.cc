// `shop`: the group of verbs about the shop, which is the payment host. No state of its own.
#include "shop_verbs.h"

namespace kivotool {

void AddShop(Verb app, Invocation& call) {
  const Verb shop =
      app.AddGroup("shop", "The shop: what it sells, and what the account has bought", "varnkivo shop purchases");
  AddShopLogin(shop, call);
  AddShopItems(shop, call);
  AddShopItem(shop, call);
  AddShopPurchases(shop, call);
  AddShopPageInfo(shop, call);
}

}  // namespace kivotool
