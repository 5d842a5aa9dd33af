// Accounts from and to JSON. The names are those of the account query where it has them.
#include "sim/account_json.h"

#include "sim/json_members.h"

namespace kivosim {
namespace {

void TakeMembers(JsonMembers& members, DeviceReport& report) {
  members.Take("time", report.time);
  members.Take("timezone", report.timezone);
  members.Take("serial", report.serial);
}

void TakeMembers(JsonMembers& members, Purchase& purchase) {
  members.Take("create_at", purchase.createAt);
  members.Take("app", purchase.app);
  members.Take("paypal_id", purchase.paypalId);
  members.Take("transaction_id", purchase.transactionId);
  members.Take("model", purchase.model);
  members.Take("serial", purchase.serial);
  members.Take("price", purchase.price);
  members.Take("pay_status", purchase.payStatus);
}

template <class Value, class Read>
void TakeMap(JsonMembers& members, const std::string& name, std::map<std::string, Value>& target, Read read) {
  if (!members.Has(name)) return;
  const Json::Value map = members.TakeAny(name);
  if (!map.isObject()) throw std::runtime_error("\"" + name + "\" must be an object");
  target.clear();
  for (const std::string& key : map.getMemberNames()) target[key] = read(map[key]);
}

template <class Value>
Json::Value MapToJson(const std::map<std::string, Value>& map) {
  Json::Value json(Json::objectValue);
  for (const auto& [key, value] : map) json[key] = value;
  return json;
}

template <class Value>
void SetIfGiven(Json::Value& json, const char* name, const std::optional<Value>& value) {
  if (value) json[name] = *value;
}

template <class Element>
void TakeList(JsonMembers& members, const std::string& name, std::vector<Element>& target) {
  if (!members.Has(name)) return;
  const Json::Value list = members.TakeAny(name);
  if (!list.isArray()) throw std::runtime_error("\"" + name + "\" must be a list");
  for (const Json::Value& json : list) {
    JsonMembers element(json);
    TakeMembers(element, target.emplace_back());
    element.End();
  }
}

Json::Value ReportsToJson(const std::vector<DeviceReport>& reports) {
  Json::Value list(Json::arrayValue);
  for (const DeviceReport& report : reports) {
    Json::Value& json = list.append(Json::Value());
    json["time"] = Json::UInt64{report.time};
    json["timezone"] = report.timezone;
    json["serial"] = report.serial;
  }
  return list;
}

}  // namespace

Json::Value PurchaseToJson(const Purchase& purchase) {
  Json::Value json;
  json["create_at"] = purchase.createAt;
  json["app"] = purchase.app;
  json["paypal_id"] = purchase.paypalId;
  json["transaction_id"] = purchase.transactionId;
  json["model"] = purchase.model;
  json["serial"] = purchase.serial;
  json["price"] = purchase.price;
  json["pay_status"] = purchase.payStatus;
  return json;
}

Account AccountFromJson(const Json::Value& json) {
  JsonMembers members(json);
  for (const char* name : {"email", "password", "user_id"}) members.Require(name);
  Account account;
  members.Take("email", account.email);
  members.Take("password", account.password);
  members.Take("user_id", account.userId);
  members.Take("full_name", account.fullName);
  members.Take("country", account.country);
  members.Take("timezone", account.timezone);
  members.Take("notify_language", account.notifyLanguage);
  members.Take("activated", account.activated);
  members.Take("disabled", account.disabled);
  members.Take("enews", account.enews);
  members.Take("critical_release", account.criticalRelease);
  members.Take("enews_local_promotion", account.enewsLocalPromotion);
  TakeMap(members, "critical_version_list", account.criticalVersionList,
          [](const Json::Value& value) { return value.asBool(); });
  members.Take("realname_validation_pass", account.realnameValidationPass);
  members.Take("report_cron_timestring", account.reportCronTimestring);
  members.Take("account_host", account.accountHost);
  members.Take("identity_host", account.identityHost);
  members.Take("refusal", account.refusal);
  TakeMap(members, "auth_keys", account.authKeys, [](const Json::Value& value) { return value.asString(); });
  members.Take("registered_by", account.registeredBy);
  TakeList(members, "reports", account.reports);
  TakeList(members, "purchases", account.purchases);
  members.End();
  return account;
}

Json::Value AccountToJson(const Account& account) {
  Json::Value json;
  json["email"] = account.email;
  json["password"] = account.password;
  json["user_id"] = account.userId;
  json["full_name"] = account.fullName;
  json["country"] = account.country;
  json["timezone"] = account.timezone;
  json["notify_language"] = account.notifyLanguage;
  json["activated"] = account.activated;
  json["disabled"] = account.disabled;
  json["enews"] = account.enews;
  json["critical_release"] = account.criticalRelease;
  json["enews_local_promotion"] = account.enewsLocalPromotion;
  json["critical_version_list"] = MapToJson(account.criticalVersionList);
  SetIfGiven(json, "realname_validation_pass", account.realnameValidationPass);
  SetIfGiven(json, "report_cron_timestring", account.reportCronTimestring);
  SetIfGiven(json, "account_host", account.accountHost);
  SetIfGiven(json, "identity_host", account.identityHost);
  json["refusal"] = account.refusal;
  json["auth_keys"] = MapToJson(account.authKeys);
  json["registered_by"] = account.registeredBy;
  json["reports"] = ReportsToJson(account.reports);
  json["purchases"] = Json::Value(Json::arrayValue);
  for (const Purchase& purchase : account.purchases) json["purchases"].append(PurchaseToJson(purchase));
  return json;
}

}  // namespace kivosim
