// `shop purchases`: what the signed-in account has bought, as a table, a document or a file for a spreadsheet. Reads
// the record and asks the shop; touches nothing. The shop parts the values of a filter at commas, so that none may hold
// one.
#include <varn/platform.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <tuple>

#include "account_state.h"
#include "output.h"
#include "shop_answer.h"
#include "shop_verbs.h"
#include "spinner.h"
#include "text.h"
#include "text_table.h"

namespace kivotool {
namespace {

constexpr char kHelp[] = "varnkivo shop purchases --help";
using Texts = std::vector<std::string>;

struct PurchaseOptions {
  std::string from, to, language;
  Texts apps, serials, prices, payers;
  bool csv = false, json = false;
};

struct Purchase {
  std::string date, item, status, buyer, transaction, model, serial;
  double price = 0;
};

struct Filter {
  const char* option;
  const Texts& values;
};
std::vector<Filter> FiltersOf(const PurchaseOptions& options) {
  return {{"app", options.apps}, {"serial", options.serials}, {"price", options.prices}, {"payer", options.payers}};
}

bool IsDay(const std::string& text) {
  std::tm day{};
  const char* end = strptime(text.c_str(), "%Y-%m-%d", &day);
  if (text.size() != 10 || !end || *end) return false;
  const std::time_t seconds = timegm(&day);
  return Rfc3339(seconds).substr(0, 10) == text;  // the 30th of February becomes another day
}

bool IsPrice(const std::string& text) {
  char* end = nullptr;
  const double price = std::strtod(text.c_str(), &end);
  return !text.empty() && text.find_first_not_of("0123456789.") == std::string::npos && !*end && std::isfinite(price);
}

void CheckFilter(const std::string& option, const std::string& value) {
  CheckShopValue(option, value, kMostInName, kHelp);
  if (value.empty() || value.find(',') != std::string::npos)
    throw UsageFailure(option + " takes a text without a comma; for several, repeat it.", kHelp);
}

void CheckOptions(const PurchaseOptions& options) {
  for (const std::string& day : {options.from, options.to})
    if (!day.empty() && !IsDay(day)) throw UsageFailure("\"" + day + "\" is not a day as 2026-01-31.", kHelp);
  if (!options.from.empty() && !options.to.empty() && options.to < options.from)
    throw UsageFailure("--to is before --from.", kHelp);
  for (const std::string& price : options.prices)
    if (!IsPrice(price)) throw UsageFailure("\"" + price + "\" is not a price as 4.99.", kHelp);
  for (const Filter& filter : FiltersOf(options))
    for (const std::string& value : filter.values) CheckFilter(std::string("--") + filter.option, value);
  CheckShopValue("--language", options.language, kMostInLanguage, kHelp);
}

std::string Again(const PurchaseOptions& options) {
  std::string command = "varnkivo shop purchases";
  if (!options.from.empty()) command += " --from " + options.from;
  if (!options.to.empty()) command += " --to " + options.to;
  for (const Filter& filter : FiltersOf(options))
    for (const std::string& value : filter.values)
      command += std::string(" --") + filter.option + " " + ShellWord(value);
  return command;
}

/// Null where nothing was given: an empty list would be a filter too.
Json::Value ListOf(const Texts& values) {
  Json::Value list;
  for (const std::string& value : values) list.append(value);
  return list;
}

const char* TextOrNone(const std::string& text) { return text.empty() ? nullptr : text.c_str(); }

std::string Language(const PurchaseOptions& options) {
  char language[32] = {};
  if (!options.language.empty()) return options.language;
  return VLIBCFileGetKeyValue("/etc/varninfo.conf", "language", language, sizeof language) > 0 ? language : "enu";
}

std::vector<Purchase> AskForPurchases(const PurchaseOptions& options) {
  const Situation situation = {Situation::Doing::kShop, Again(options), "", ""};
  Json::Value answer(Json::objectValue);
  {
    const Spinner spinner("Asking the shop", kShopSeconds, !options.json);
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (VARNKIVOAccountPurchaseList(Language(options).c_str(), TextOrNone(options.from), TextOrNone(options.to),
                                    ListOf(options.apps), ListOf(options.serials), ListOf(options.prices),
                                    ListOf(options.payers), answer) != 0)
      throw Explain(VARNKIVOErrGet(), situation);
  }
  std::vector<Purchase> purchases;
  for (const Json::Value& row : answer["logs"]) {
    const auto text = [&](const char* name) { return ShopText(row, name, situation); };
    purchases.push_back({text("date"), text("item"), text("pay_status"), text("buyer_id"), text("transaction_id"),
                         text("model"), text("serial"), ShopPrice(row, "price", situation)});
  }
  return purchases;
}

void PrintJson(const std::vector<Purchase>& purchases, double sum) {
  Json::Value document = NewDocument();
  document["purchases"] = Json::Value(Json::arrayValue);
  for (const Purchase& purchase : purchases) {
    Json::Value& entry = document["purchases"].append(Json::Value(Json::objectValue));
    entry["date"] = TextOrNull(purchase.date);
    entry["item"] = TextOrNull(purchase.item);
    entry["price"] = purchase.price;
    entry["pay_status"] = TextOrNull(purchase.status);
    entry["buyer_id"] = TextOrNull(purchase.buyer);
    entry["transaction_id"] = TextOrNull(purchase.transaction);
    entry["model"] = TextOrNull(purchase.model);
    entry["serial"] = TextOrNull(purchase.serial);
  }
  document["total"] = static_cast<Json::UInt64>(purchases.size());
  document["price_sum"] = sum;
  PrintDocument(document);
}

Exit RunPurchases(const PurchaseOptions& options) {
  CheckOptions(options);
  if (ReadAccountState(Again(options)).signIn != SignIn::kSignedIn) throw NotSignedInFailure();
  const std::vector<Purchase> purchases = AskForPurchases(options);
  TextTable table({"Date", "Item", ">Price", "Status", "Buyer", "Transaction", "Model", "Serial"});
  double sum = 0;
  for (const Purchase& row : purchases) {
    sum += row.price;
    table.Add(
        {row.date, row.item, PriceText(row.price), row.status, row.buyer, row.transaction, row.model, row.serial});
  }
  if (!std::isfinite(sum)) throw WrongAnswer({Situation::Doing::kShop, Again(options), "", ""});
  if (options.json) {
    PrintJson(purchases, sum);
  } else if (options.csv) {
    table.PrintCsv();
  } else {
    table.Print();
    std::printf("%zu purchase%s, prices %s in all\n", purchases.size(), purchases.size() == 1 ? "" : "s",
                PriceText(sum).c_str());
  }
  return kDone;
}

}  // namespace

void AddShopPurchases(Verb shop, Invocation& call) {
  auto options = std::make_shared<PurchaseOptions>();
  const Verb verb = shop.AddVerb(call, "purchases", "List what the signed-in account has bought",
                                 "varnkivo shop purchases --from 2026-01-01 --app photos --app songbook\n"
                                 "  varnkivo shop purchases --csv > purchases.csv");
  verb.Text("--from", options->from, "From this day on, as 2026-01-31");
  verb.Text("--to", options->to, "Up to this day");
  const std::tuple<const char*, Texts&, const char*> filters[] = {
      {"--app", options->apps, "Of this application; may be repeated, as the following"},
      {"--serial", options->serials, "For the device of this serial number"},
      {"--price", options->prices, "At this price"},
      {"--payer", options->payers, "Paid by this payer"}};
  for (const auto& [name, values, help] : filters) verb.Texts(name, values, help);
  verb.Text("--language", options->language, "Language of the answer; by default the device's");
  verb.Flag("--csv", options->csv, "Print comma-separated values (RFC 4180) for a spreadsheet").Excludes(verb.Json());
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunPurchases(*options); };
  });
}

}  // namespace kivotool
