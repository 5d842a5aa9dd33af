// Authorises the monitoring service that watches this device.
#ifndef VARNKIVO_ACCOUNT_PULSE_WATCH_SERVICE_H_
#define VARNKIVO_ACCOUNT_PULSE_WATCH_SERVICE_H_

#include "varnkivo.h"

#include <memory>
#include <string>

namespace varnkivo {

class AccountPulseWatchServiceImpl;

class KIVO_API AccountPulseWatchService {
 public:
  AccountPulseWatchService();
  AccountPulseWatchService(const AccountPulseWatchService&) = delete;
  AccountPulseWatchService& operator=(const AccountPulseWatchService&) = delete;
  virtual ~AccountPulseWatchService();

  /// Has the account host grant an authorization code to the service that sent the user's browser here, and gives the
  /// address to send it back to: `redirectUrl`, "?", and "scope", "state" and "code" percent-encoded. A `redirectUrl`
  /// with a query gets a second "?".
  /// WARNING: `redirectUrl` is used as it stands. It comes from outside: the calling page must know it as one of the
  /// service's, or this device leads browsers, with a code, to anywhere (RFC 9700, section 4.11).
  /// `scope` is sent as one value. Throws KivoException: 1 a control character in `clientId`, 2 an answer that is not
  /// JSON, 5 no usable answer, and what PackagePkceClient("pulsewatch").GetAccessToken throws.
  std::string Grant(const std::string& clientId, const std::string& scope, const std::string& redirectUrl,
                    const std::string& state) const;

 private:
  std::unique_ptr<AccountPulseWatchServiceImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_ACCOUNT_PULSE_WATCH_SERVICE_H_
