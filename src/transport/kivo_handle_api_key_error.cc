// Repairs the device's API key after the account centre refused it. Touches the slot and the platform's key.
// Its log lines carry the name of the page-info operation, which it serves and was once a part of.
#include "internal/guard.h"
#include "internal/log.h"
#include "varn/platform.h"
#include "varnkivo.h"

#include <json/json.h>

namespace {

constexpr const char* kSource = "kivo_get_iframe_info";

}  // namespace

int VARNKIVOHandleApiKeyError(Json::Value& result, const char* error) {
  using namespace varnkivo;
  return Guarded(kSource, [&] {
    if (!error) {
      LogError(kSource, "Bad Parameters");
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    const int code = MapLibKivoCenterErrorCode(error);
    if (code == KIVO_ERR_APIKEY_NOT_FOUND) {
      LogError(kSource, "ApiKey not found. Register new one.");
      char key[VARN_CLOUD_API_KEY_SIZE] = {};
      if (VARNCloudServiceRegisterApiKey(key) < 0) {
        LogError(kSource, "VARNCloudServiceRegisterApiKey failed");
        return -1;
      }
      if (!result.isObject()) result = Json::Value(Json::objectValue);
      result["api_key"] = key;
      return 0;
    }
    if (code == KIVO_ERR_APIKEY_EXPIRED) {
      VARNCloudServiceActionHandler(2);
      return -1;
    }
    LogError(kSource, "VARNKIVOHandleApiKeyError failed, error=%u", static_cast<unsigned int>(code));
    return -1;
  });
}
