// The classes' door to facts and services of the host: serial number, MAC address, user agent, API key, notifications.
// Holds nothing; each fact is read from the platform on every call. Failures are logged here, then thrown.
#include "lum_service.h"

#include "internal/log.h"
#include "internal/platform_handles.h"
#include "internal/redact.h"
#include "kivo_exception.h"
#include "varn/platform.h"

namespace varnkivo {
namespace {

constexpr const char* kSource = "lum_service";

[[noreturn]] void ThrowCloudServiceError() {
  throw KivoException(static_cast<KIVO_ERRCODE>(GetErrorCodeFromCloudService()));
}

}  // namespace

class LumServiceImpl {
 public:
  std::string GetSerialNo() const {
    char serial[36] = {};
    if (VLIBGetSerialNumber(serial, sizeof serial) < 0) {
      LogError(kSource, "Failed to get serial number, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
               VLIBCErrorGetLine());
      throw KivoException(KIVO_ERR_SERIAL);
    }
    return serial;
  }

  std::string GetMac() const {
    char mac[24] = {};
    if (VARNLuinfoCloudServiceGetMacAddress(mac, sizeof mac) < 0) {
      LogError(kSource, "Failed to get mac address");
      throw KivoException(KIVO_ERR_MAC);
    }
    return mac;
  }

  std::string GetUserAgent() const {
    char agent[256] = {};
    if (VARNKIVOUserAgentNameGet(agent, sizeof agent) != 0) {
      LogError(kSource, "Failed to get kivo user agent");
      throw KivoException(KIVO_ERR_SYSTEM);
    }
    return agent;
  }

  std::string GetApiKey() const {
    char key[VARN_CLOUD_API_KEY_SIZE] = {};
    if (VARNCloudServiceGetApiKey(key, 1) < 0) {
      LogError(kSource, "Failed to get apikey");
      ThrowCloudServiceError();
    }
    return key;
  }

  std::string NewApiKey() const {
    char key[VARN_CLOUD_API_KEY_SIZE] = {};
    if (VARNCloudServiceRegisterApiKey(key) < 0) {
      LogError(kSource, "Failed to register apikey");
      ThrowCloudServiceError();
    }
    return key;
  }

  void SendSysNotify(const std::string& tag, const std::map<std::string, std::string>& params) const {
    const Hash hash(VLIBCSzHashAlloc(1024));
    if (!hash) {
      LogError(kSource, "Failed to notify: out of memory");
      return;
    }
    for (const auto& [name, value] : params) {
      if (VLIBCSzHashSetValue(hash.get(), name.c_str(), value.c_str()) < 0)
        LogError(kSource, "Failed to set notify param: %s => %s", name.c_str(), Redact(value).c_str());
    }
    if (VARNSysNotifySendNotifiction(tag.c_str(), hash.get()) < 0)
      LogError(kSource, "Failed to send notify by VARNSysNotifySendNotifiction");
  }
};

LumService::LumService() : impl_(new LumServiceImpl) {}
LumService::~LumService() = default;  // here, where LumServiceImpl is complete
std::string LumService::GetSerialNo() const { return impl_->GetSerialNo(); }
std::string LumService::GetMac() const { return impl_->GetMac(); }
std::string LumService::GetUserAgent() const { return impl_->GetUserAgent(); }
std::string LumService::GetApiKey() const { return impl_->GetApiKey(); }
std::string LumService::NewApiKey() const { return impl_->NewApiKey(); }
void LumService::SendSysNotify(const std::string& tag, const std::map<std::string, std::string>& params) const {
  impl_->SendSysNotify(tag, params);
}

}  // namespace varnkivo
