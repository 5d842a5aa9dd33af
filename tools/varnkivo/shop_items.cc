// `shop items` and `shop item`: what the shop sells, and its record of one application. The catalogue is open to
// everybody, so that nobody has to be signed in and no account is named.
#include <cstdio>
#include <memory>

#include "output.h"
#include "shop_answer.h"
#include "shop_verbs.h"
#include "text.h"

namespace kivotool {
namespace {

struct ItemOptions {
  std::string name, language;
  bool json = false;
};

void CheckOptions(const ItemOptions& options, const char* help) {
  CheckShopValue("The application's name", options.name, kMostInName, help);
  CheckShopValue("--language", options.language, kMostInLanguage, help);
}

Exit RunItems(const ItemOptions& options) {
  CheckOptions(options, "varnkivo shop items --help");
  const Situation situation = {Situation::Doing::kShop, "varnkivo shop items", "", ""};
  const Json::Value answer =
      AskShop(PAYMENT_ACTION_GET_ITEM_LIST, Json::Value(Json::objectValue), options.language, situation, options.json);
  const std::vector<ShopItem> items = ShopItems(answer, situation);
  if (options.json) {
    Json::Value document = NewDocument();
    document["language"] = TextOrNull(ShopText(answer, "language", situation));
    document["items"] = ItemsJson(items);
    PrintDocument(document);
    return kDone;
  }
  if (items.empty()) std::fputs("varnkivo: The shop sells nothing.\n", stderr);
  PrintItems(items);
  return kDone;
}

Exit RunItem(const ItemOptions& options) {
  CheckOptions(options, "varnkivo shop item --help");
  if (options.name.empty()) throw UsageFailure("The application's name is empty.", "varnkivo shop item --help");
  const Situation situation = {Situation::Doing::kShop, "varnkivo shop item " + ShellWord(options.name), "", ""};
  Json::Value args(Json::objectValue);
  args["app"] = options.name;
  const Json::Value answer = AskShop(PAYMENT_ACTION_GET_APP_ITEM_INFO, args, options.language, situation, options.json);
  const std::vector<ShopItem> items = ShopItems(answer, situation);
  const std::string app = ShopText(answer, "app", situation), title = ShopText(answer, "title", situation),
                    version = ShopText(answer, "version", situation);
  if (options.json) {
    Json::Value document = NewDocument();
    document["app"] = TextOrNull(app);
    document["title"] = TextOrNull(title);
    document["version"] = TextOrNull(version);
    document["items"] = ItemsJson(items);
    PrintDocument(document);
    return kDone;
  }
  PrintField("Application", app);
  PrintField("Title", title);
  PrintField("Version", version);
  PrintItems(items);
  return kDone;
}

}  // namespace

void AddShopItems(Verb shop, Invocation& call) {
  auto options = std::make_shared<ItemOptions>();
  const Verb verb = shop.AddVerb(call, "items", "List what the shop sells", "varnkivo shop items --language ger");
  verb.Text("--language", options->language, "Language of the titles, as \"enu\"");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunItems(*options); };
  });
}

void AddShopItem(Verb shop, Invocation& call) {
  auto options = std::make_shared<ItemOptions>();
  const Verb verb =
      shop.AddVerb(call, "item", "Show the shop's record of one application", "varnkivo shop item photos");
  verb.Text("NAME", options->name, "Name of the application").Required();
  verb.Text("--language", options->language, "Language of the titles, as \"enu\"");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunItem(*options); };
  });
}

}  // namespace kivotool
