// `shop page-info`: what the shop's page, where a device's own pages embed it, has to know about the device. Where the
// device has no API key yet the library makes one; nothing else changes. The key is a secret, and cut unless asked for.
#include <algorithm>
#include <memory>

#include "account_state.h"
#include "output.h"
#include "shop_answer.h"
#include "shop_verbs.h"
#include "spinner.h"

namespace kivotool {
namespace {

constexpr std::size_t kShown = 10;  // characters of a secret, as in the logs
constexpr struct {
  const char *label, *key;
} kRows[] = {{"Server", "server_url"},
             {"Serial number", "serial_no"},
             {"Factory serial", "orig_serial_no"},
             {"MAC address", "mac"},
             {"API key", "api_key"}};

struct PageInfoOptions {
  bool showSecrets = false, json = false;
};

/// Never more than a third, so that a short key does not show.
std::string Masked(const std::string& secret) {
  return secret.empty() ? "" : secret.substr(0, std::min(kShown, secret.size() / 3)) + "...";
}

Exit RunPageInfo(const PageInfoOptions& options) {
  const Situation situation = {Situation::Doing::kShop, "varnkivo shop page-info", "", ""};
  ReadAccountState(situation.again);  // whom the record is out of reach for, the API key is as well
  Json::Value info(Json::objectValue);
  {
    const Spinner spinner("Asking the cloud service", kShopSeconds, !options.json);
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (VARNKIVOGetIframeInfo(info) != 0) throw Explain(VARNKIVOErrGet(), situation);
  }
  Json::Value document = NewDocument();
  for (const auto& row : kRows) document[row.key] = TextOrNull(info[row.key].asString());
  if (!options.showSecrets) document["api_key"] = TextOrNull(Masked(info["api_key"].asString()));
  document["masked"] = !options.showSecrets;
  if (options.json) {
    PrintDocument(document);
    return kDone;
  }
  for (const auto& row : kRows) PrintField(row.label, document[row.key].asString());
  return kDone;
}

}  // namespace

void AddShopPageInfo(Verb shop, Invocation& call) {
  auto options = std::make_shared<PageInfoOptions>();
  const Verb verb = shop.AddVerb(call, "page-info", "Show what the shop's embedded page has to know about this device",
                                 "varnkivo shop page-info");
  verb.Flag("--show-secrets", options->showSecrets, "Print the whole API key");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunPageInfo(*options); };
  });
}

}  // namespace kivotool
