// Facts and services of the host operating system, read afresh on every call.
#ifndef VARNKIVO_LUM_SERVICE_H_
#define VARNKIVO_LUM_SERVICE_H_

#include "varnkivo.h"

#include <map>
#include <memory>
#include <string>

namespace varnkivo {

class LumServiceImpl;

/// Every getter throws KivoException with the code named when the platform fails.
class KIVO_API LumService {
 public:
  LumService();
  LumService(const LumService&) = delete;
  LumService& operator=(const LumService&) = delete;
  ~LumService();

  std::string GetSerialNo() const;   ///< code 8
  std::string GetMac() const;        ///< code 20
  std::string GetUserAgent() const;  ///< code 6; may be empty
  std::string GetApiKey() const;     ///< makes a key when there is none; code of the cloud service's last error
  std::string NewApiKey() const;     ///< replaces the key; code of the cloud service's last error
  /// Sends the notification `tag` with its substitutions. Failures are logged, never thrown.
  void SendSysNotify(const std::string& tag, const std::map<std::string, std::string>& params) const;

 private:
  std::unique_ptr<LumServiceImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_LUM_SERVICE_H_
