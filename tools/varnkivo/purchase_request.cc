// Asks the shop what the signed-in account has bought. Reads the record and touches nothing. The library's own list
// makes an answer without entries an empty one, and a price of null 0.00: a person who looks for a purchase must not be
// told so, hence the request is made here and the answer taken apart with the same suspicion as the others of the shop.
#include "purchase_request.h"

#include <string.h>
#include <varn/platform.h>

#include <memory>

#include "shop_answer.h"
#include "spinner.h"

namespace kivotool {
namespace {

constexpr int kSlots = 16;

/// Overwritten when it goes: it holds the auth key.
struct Account : _tag_kivo_INFO_ {
  Account() : _tag_kivo_INFO_{} {}
  Account(const Account&) = delete;
  Account& operator=(const Account&) = delete;
  ~Account() { explicit_bzero(authKey, sizeof authKey); }
};

struct HashFree {
  void operator()(VLIBSzHash* hash) const noexcept { VLIBCSzHashFree(hash); }
};

/// In the order in which they are sent.
class Parameters {
 public:
  explicit Parameters(const Situation& situation) : situation_(situation), hash_(VLIBCSzHashAlloc(kSlots)) {}
  void Set(const char* name, const char* value) {
    if (!hash_ || VLIBCSzHashSetValue(hash_.get(), name, value) < 0) throw Explain(KIVO_ERR_SYSTEM, situation_);
  }
  void SetList(const char* name, const std::vector<std::string>& values) {
    std::string list;
    for (const std::string& value : values) list += (list.empty() ? "" : ",") + value;
    if (!list.empty()) Set(name, list.c_str());
  }
  VLIBSzHash* Get() const { return hash_.get(); }

 private:
  const Situation& situation_;
  std::unique_ptr<VLIBSzHash, HashFree> hash_;
};

void SetAll(Parameters& parameters, const PurchaseQuery& query, const Situation& situation) {
  Account account;
  char serial[36] = {};
  if (VARNKIVOAccountGet(&account) < 0) throw Explain(VARNKIVOErrGet(), situation);
  if (VARNKIVOGetSerialNumber(serial, sizeof serial) < 0) throw Explain(KIVO_ERR_SERIAL, situation);
  parameters.Set("action", "get_history");
  parameters.Set("id", account.userId);
  parameters.Set("auth_key", account.authKey);
  parameters.Set("serial_no", serial);
  parameters.Set("language", query.language.c_str());
  if (query.from || query.to) parameters.Set("dates", (query.from.value_or("") + "," + query.to.value_or("")).c_str());
  parameters.SetList("apps", query.apps);
  parameters.SetList("serials", query.serials);
  parameters.SetList("prices", query.prices);
  parameters.SetList("paypals", query.payers);
}

}  // namespace

Json::Value AskForPurchases(const PurchaseQuery& query, const Situation& situation, bool json) {
  char host[2048] = {};
  if (VARNPaymentConfigGet(host) < 0) throw Explain(KIVO_ERR_PAYMENT_CONFIG, situation);
  Parameters parameters(situation);
  SetAll(parameters, query, situation);
  const auto request = std::make_unique<_tag_libkivo_varn_request_>();
  request->host = host;
  request->path = "api/query.php";
  request->params = parameters.Get();
  ShopResponse response;
  {
    const Spinner spinner("Asking the shop", kShopSeconds, !json);
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (VARNKIVOHttpsRequestSend(request.get(), &response) < 0) throw Explain(VARNKIVOErrGet(), situation);
  }
  Json::Value entries = ParseShopAnswer(response, situation)["entries"];
  if (!entries.isArray()) throw WrongAnswer(situation);
  return entries;
}

}  // namespace kivotool
