// Signs in to the shop with an e-mail and a password. Touches the slot on failure.
// The password leaves as its MD5 digest, which the payment host takes for the password itself.
#include "internal/operation.h"
#include "varnkivo.h"

#include <json/json.h>

#include <cstdio>

namespace varnkivo {
namespace {

constexpr const char* kSource = "payment_https_auth";
constexpr int kDigestSize = 65;

}  // namespace
}  // namespace varnkivo

int VARNPaymentHTTPSAuth(const char* account, const char* password, const char* language,
                         _tag_libkivo_varn_response_* response) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    if (!account || !password || !response) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    char digest[kDigestSize] = {};
    if (KivoGetMd5String(password, digest, sizeof digest) < 0) op.Stop(KIVO_ERR_SYSTEM, "Failed to get md5 string");
    AccountCopy credentials;
    std::snprintf(credentials.email, sizeof credentials.email, "%s", account);
    std::snprintf(credentials.password, sizeof credentials.password, "%s", digest);
    Json::Value args(Json::objectValue);
    args["kivoID"] = account;
    args["kivoPW"] = digest;
    if (language) args["language"] = language;
    return VARNPaymentHTTPSSendWithJSONAndAccount(PAYMENT_ACTION_AUTH, args, &credentials, response);
  });
}
