// Gathers what the shop's embedded page has to know about this device. Touches nothing, but makes the device's API key
// when there is none.
#include "internal/operation.h"
#include "varnkivo.h"

#include <json/json.h>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_get_iframe_info";

std::string FactorySerialNumber(const Operation& op) {
  char serial[36] = {};
  if (VLIBGetOriginalSerialNumber(serial, sizeof serial) < 0)
    op.Stop(KIVO_ERR_SERIAL, "Failed to get serial number, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
            VLIBCErrorGetLine());
  return serial;
}

std::string CloudApiKey(const Operation& op) {
  char key[VARN_CLOUD_API_KEY_SIZE] = {};
  if (VARNCloudServiceGetApiKey(key, 1) < 0) {
    const int code = GetErrorCodeFromCloudService();
    op.Stop(code, "Failed to get apikey, code: %d, cloudservice code: %d", code, VARNCloudServiceGetErrorCode());
  }
  return key;
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOGetIframeInfo(Json::Value& out) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    const ServerConfig server = op.ReadServerConfig();
    const std::string serial = op.SerialNumber(), original = FactorySerialNumber(op);
    const std::string mac = op.MacAddress(), apiKey = CloudApiKey(op);
    Json::Value info = out.isObject() ? out : Json::Value(Json::objectValue);
    info["server_url"] = server.account;
    info["serial_no"] = serial;
    info["orig_serial_no"] = original;
    info["mac"] = mac;
    info["api_key"] = apiKey;
    out.swap(info);
    return 0;
  });
}
