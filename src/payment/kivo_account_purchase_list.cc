// Asks the payment host what the signed-in account has bought, and makes rows of the answer. Touches nothing.
// The filters and the result may be one object, so the result is written last.
#include "internal/json_utils.h"
#include "internal/operation.h"
#include "internal/redact.h"
#include "varnkivo.h"

#include <json/json.h>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_account_purchase_list";

/// The elements of a filter, joined by commas; nothing where it is no array.
std::optional<std::string> Join(const Operation& op, const Json::Value& filter) {
  if (!filter.isArray()) return std::nullopt;
  std::string joined;
  for (const Json::Value& element : filter) {
    const std::optional<std::string> text = ToText(element);
    if (!text) op.Stop(KIVO_ERR_BAD_PARAM, "Bad parameter");
    joined += (&element == &filter[0] ? "" : ",") + *text;
  }
  return joined;
}

[[noreturn]] void StopForAnswer() {
  VARNKIVOErrSet(KIVO_ERR_RESPONSE);
  throw Stopped{};
}

Json::Value ToRow(const Json::Value& entry) {
  if (!entry.isObject() || !entry["price"].isConvertibleTo(Json::realValue)) StopForAnswer();
  Json::Value row(Json::objectValue);
  row["date"] = entry["create_at"];
  row["item"] = entry["app"];
  row["buyer_id"] = entry["paypal_id"];
  row["transaction_id"] = entry["transaction_id"];
  row["model"] = entry["model"];
  row["serial"] = entry["serial"];
  row["price"] = entry["price"].asDouble();
  row["pay_status"] = entry["pay_status"];
  return row;
}

Json::Value ToLogs(const Json::Value& answer) {
  Json::Value result(Json::objectValue), rows(Json::arrayValue);
  const Json::Value& entries = answer["entries"];
  if (entries.isArray())
    for (const Json::Value& entry : entries) rows.append(ToRow(entry));
  result["total"] = rows.size();
  result["offset"] = 0;
  result["logs"].swap(rows);
  return result;
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountPurchaseList(const char* language, const char* dateFrom, const char* dateTo, const Json::Value& apps,
                                const Json::Value& serials, const Json::Value& prices, const Json::Value& paypals,
                                Json::Value& out) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (!language || out.isNull()) op.Stop(KIVO_ERR_BAD_PARAM, "Bad parameter");
    AccountCopy account;
    if (VARNKIVOAccountGet(&account) < 0) op.Stop(KIVO_ERR_NO_ACCOUNT, "VARNKIVOAccountGet failed");
    const ServerConfig server = op.ReadServerConfig();
    const std::string serial = op.SerialNumber();
    Request request(op, server.payment, "api/query.php");
    request.Set("action", "get_history")
        .Set("id", account.userId)
        .Set("auth_key", account.authKey)
        .Set("serial_no", serial)
        .Set("language", language);
    if (dateFrom || dateTo) request.Set("dates", std::string(dateFrom ? dateFrom : "") + "," + (dateTo ? dateTo : ""));
    const std::pair<const char*, const Json::Value&> filters[] = {
        {"apps", apps}, {"serials", serials}, {"prices", prices}, {"paypals", paypals}};
    for (const auto& [name, filter] : filters)
      if (const std::optional<std::string> joined = Join(op, filter)) request.Set(name, *joined);
    const char* body = request.Send();
    Json::Value answer;
    if (!ParseJson(body, answer)) op.Stop(KIVO_ERR_BAD_JSON, "Failed to parse json: %s", Redact(body).c_str());
    if (!HasMember(answer, "code")) StopForAnswer();
    if (MapLibKivoCenterErrorCode(StringOrNull(answer, "code")) != KIVO_ERR_SUCCESS)
      op.Stop(kKeepCode, "Failed to query purchase info, resp=%s", Redact(body).c_str());
    Json::Value logs = ToLogs(answer);
    out.swap(logs);
    return 0;
  });
}
