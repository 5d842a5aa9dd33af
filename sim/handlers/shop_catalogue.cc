// "api/getItemList.php" and "api/package/record" of the payment host: what is sold, and all of one application. Open to
// everybody; an account that is named has to be right.
#include "sim/handlers/device_request.h"
#include "sim/handlers/shop.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

struct Application {
  const char *app, *title, *version;
};
constexpr Application kApplications[] = {
    {"photos", "Photo Album", "2.4.1"}, {"pulsewatch", "Pulse Watch", "1.0.3"}, {"songbook", "Song Book", "5.2.0"}};

struct Item {
  const char *app, *item, *title;
  double price;
};
constexpr Item kItems[] = {{"photos", "photos-faces", "Face search", 4.99},
                           {"photos", "photos-frames", "Fifty frames", 1.5},
                           {"pulsewatch", "pulsewatch-year", "One year of monitoring", 12.5},
                           {"songbook", "songbook-chords", "Chord sheets", 9.99},
                           {"songbook", "songbook-choir", "Choir pack", 19}};

/// Those of one application, or ("") all.
Json::Value Items(const std::string& app) {
  Json::Value items(Json::arrayValue);
  for (const Item& row : kItems) {
    if (!app.empty() && app != row.app) continue;
    Json::Value& item = items.append(Json::Value());
    item["app"] = row.app;
    item["item"] = row.item;
    item["title"] = row.title;
    item["price"] = row.price;
    item["currency"] = "EUR";
  }
  return items;
}

Json::Value Good(const Request& request) {
  Json::Value answer;
  answer["code"] = "good";
  answer["language"] = request.HasParam("language") ? request.Param("language") : "enu";
  return answer;
}

Response List(const Request& request) {
  Json::Value answer = Good(request);
  answer["items"] = Items("");
  return {200, JsonText(answer)};
}

Response Record(const Request& request) {
  for (const Application& row : kApplications) {
    if (request.Param("app") != row.app) continue;
    Json::Value answer = Good(request);
    answer["app"] = row.app;
    answer["title"] = row.title;
    answer["version"] = row.version;
    answer["items"] = Items(row.app);
    return {200, JsonText(answer)};
  }
  return CodeAnswer("badparam");
}

Handler Open(std::vector<Parameter> parameters, Response (*answer)(const Request&)) {
  return DeviceQueryHandler(std::move(parameters), [answer](const Request& request, CloudState& state) -> Reply {
    const bool named = request.HasParam("kivoID") || request.HasParam("kivoPW");
    const std::string refusal = named ? CheckShopper(request, state) : "";
    return refusal.empty() ? answer(request) : CodeAnswer(refusal);
  });
}

}  // namespace

void AddShopCatalogue(std::vector<Route>& routes) {
  const Parameter language = {"language", Parameter::kOptional};
  routes.push_back({HostFamily::kPayment, "/api/getItemList.php", Open({language}, List)});
  routes.push_back({HostFamily::kPayment, "/api/package/record", Open({{"app"}, language}, Record)});
}

}  // namespace kivosim
