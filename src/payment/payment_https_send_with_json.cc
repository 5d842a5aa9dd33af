// Turns an action of the payment host and a flat JSON object into a request, and sends it. Touches the slot on failure.
// A value that is no text goes out as jsoncpp prints it, with the newline at its end: the host knows it so.
#include "internal/log.h"
#include "internal/operation.h"
#include "varnkivo.h"

#include <json/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace varnkivo {
namespace {

constexpr const char* kSource = "payment_https_send_with_json";
constexpr int kHashCapacity = 1024;
constexpr int kPost = 0, kGet = 1;

struct Action {
  PAYMENT_ACTION action;
  const char* name;
  const char* path;
  int method;
};
constexpr Action kActions[] = {{PAYMENT_ACTION_AUTH, "auth", "auth.php", kPost},
                               {PAYMENT_ACTION_GET_ITEM_LIST, "getItemList", "getItemList.php", kGet},
                               {PAYMENT_ACTION_GET_APP_ITEM_INFO, "getAppItemInfo", "package/record", kGet}};

/// Holds the credentials, and so is overwritten when it goes.
struct PaymentRequest : _tag_libkivo_varn_request_ {
  PaymentRequest() : _tag_libkivo_varn_request_{} {}
  PaymentRequest(const PaymentRequest&) = delete;
  PaymentRequest& operator=(const PaymentRequest&) = delete;
  ~PaymentRequest() {
    explicit_bzero(static_cast<_tag_libkivo_varn_request_*>(this), sizeof(_tag_libkivo_varn_request_));
  }
};

struct PaymentResponse : _tag_libkivo_varn_response_ {
  PaymentResponse() : _tag_libkivo_varn_response_{} {}
  PaymentResponse(const PaymentResponse&) = delete;
  PaymentResponse& operator=(const PaymentResponse&) = delete;
  ~PaymentResponse() { VARNKIVOHttpsResponseFree(this); }
};

/// The payment host's address.
std::string PaymentHost() {
  ServerConfig config = {};
  if (VARNKIVOServerConfigGet(reinterpret_cast<char*>(&config)) == 0) return config.payment;
  VARNKIVOErrSet(KIVO_ERR_PAYMENT_CONFIG);
  throw Stopped{};
}

[[noreturn]] void StopForAllocation(const Operation& op, int line) {
  op.Stop({KIVO_ERR_SYSTEM, line}, "Failed to alloc https request, err=[0x%04X %s:%d]", VLIBCErrGet(),
          VLIBCErrorGetFile(), VLIBCErrorGetLine());
}

Hash ToParameters(const Operation& op, const Json::Value& args) {
  if (!args.isObject()) op.Stop(KIVO_ERR_BAD_JSON, "Wrong JSON format");
  Hash parameters(VLIBCSzHashAlloc(kHashCapacity));
  if (!parameters) StopForAllocation(op, __LINE__);
  for (const std::string& name : args.getMemberNames()) {
    const Json::Value& value = args[name];
    const std::string text = value.isString() ? value.asString() : value.toStyledString();
    if (value.isObject() || value.isArray() || (name + text).find('\0') != std::string::npos) {
      VARNKIVOErrSet(KIVO_ERR_BAD_JSON);
      throw Stopped{};
    }
    if (VLIBCSzHashSetValue(parameters.get(), name.c_str(), text.c_str()) < 0) StopForAllocation(op, __LINE__);
  }
  return parameters;
}

void CopyAnswer(const PaymentResponse& from, _tag_libkivo_varn_response_& to) {
  char* const body = from.body ? strdup(from.body) : nullptr;
  if (from.body && !body) throw std::bad_alloc();
  to.http_status = from.http_status;
  if (body) to.body = body;
}

}  // namespace
}  // namespace varnkivo

PAYMENT_ACTION VARNPaymentParseAction(const char* name) {
  for (const varnkivo::Action& row : varnkivo::kActions)
    if (name && strcasecmp(name, row.name) == 0) return row.action;
  return PAYMENT_ACTION_NONE;
}

int VARNPaymentHTTPSSendWithJSONAndAccount(PAYMENT_ACTION action, const Json::Value& args,
                                           const _tag_kivo_INFO_* account, _tag_libkivo_varn_response_* response) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    if (action < PAYMENT_ACTION_AUTH || action >= PAYMENT_ACTION_NONE) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    const Action& row = kActions[action];
    const std::string host = PaymentHost(), path = std::string("api/") + row.path;
    PaymentRequest request;
    request.host = host.c_str();
    request.path = path.c_str();
    request.method = row.method;
    if (account) {
      std::snprintf(request.account_id, sizeof request.account_id, "%s", account->email);
      std::snprintf(request.account_password, sizeof request.account_password, "%s", account->password);
    }
    const Hash parameters = ToParameters(op, args);
    request.params = parameters.get();
    PaymentResponse answer;
    if (VARNKIVOHttpsRequestSend(&request, &answer) < 0)
      op.Stop(kKeepCode, "failed to send https request. err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
              VLIBCErrorGetLine());
    if (response) CopyAnswer(answer, *response);
    return 0;
  });
}

int VARNPaymentHTTPSSendWithJSON(PAYMENT_ACTION action, const Json::Value& args,
                                 _tag_libkivo_varn_response_* response) {
  return VARNPaymentHTTPSSendWithJSONAndAccount(action, args, nullptr, response);
}
