// Gives the hosts to the exported functions as fixed-size texts. Reads what ServerInfo reads.
// The order in the record is payment host first, account host second.
#include "internal/guard.h"
#include "internal/log.h"
#include "internal/operation.h"
#include "kivo_exception.h"
#include "server_info.h"
#include "varnkivo.h"

#include <cstdio>

namespace {

constexpr const char* kSource = "kivo_server_config_get";

}  // namespace

int VARNKIVOServerConfigGet(char* config) {
  using namespace varnkivo;
  return Guarded(kSource, [&] {
    if (!config) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    auto* hosts = reinterpret_cast<ServerConfig*>(config);
    const ServerInfo server;
    const std::string account = server.GetAccountHost(), payment = server.GetPaymentHost();
    std::snprintf(hosts->account, sizeof hosts->account, "%s", account.c_str());
    std::snprintf(hosts->payment, sizeof hosts->payment, "%s", payment.c_str());
    return 0;
  });
}

int VARNPaymentConfigGet(char* url) {
  using namespace varnkivo;
  return Guarded(kSource, [&] {
    if (!url) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    ServerConfig config = {};
    if (VARNKIVOServerConfigGet(reinterpret_cast<char*>(&config)) < 0) {
      LogError(kSource, "VARNKIVOServerConfigGet, code=%u", static_cast<unsigned int>(VARNKIVOErrGet()));
      return -1;
    }
    std::snprintf(url, sizeof config.payment, "%s", config.payment);
    return 0;
  });
}
