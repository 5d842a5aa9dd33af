// Creates an account at the account centre for somebody who has none. Touches nothing on the device: it does not sign
// in. A reply lost on the way may be followed by the same request again, which the server then calls in use.
#include "internal/operation.h"
#include "internal/redact.h"
#include "varnkivo.h"

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_account_register";
constexpr int kTokenSize = 33;

/// The device token of the serial number alone, as the cloud service makes it.
std::string DeviceToken(const Operation& op, const std::string& serial) {
  char token[kTokenSize] = {};
  if (VARNCloudServiceLutokenGenerateToken(serial.c_str(), token, sizeof token) < 0)
    op.Stop(KIVO_ERR_TOKEN, "VARNCloudServiceLutokenGenerateToken Failed, err=[0x%04X %s:%d]", VLIBCErrGet(),
            VLIBCErrorGetFile(), VLIBCErrorGetLine());
  return token;
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountRegister(const char* email, const char* password, const char* fullName, bool criticalRelease,
                            bool enews, bool enewsLocalPromotion, const char* country) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation& op) {
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (!email || !password || !fullName) op.Stop(KIVO_ERR_BAD_PARAM, "Bad Parameters");
    const std::string serial = op.SerialNumber();
    const ServerConfig server = op.ReadServerConfig();
    const std::string language = SystemLanguage();
    const std::string token = DeviceToken(op, serial);
    const std::string zone = op.TimeZoneName();
    Request request(op, server.account, "device/api/user/register");
    request.Set("email", email)
        .Set("passwd", password)
        .Set("full_name", fullName)
        .Set("serial_no", serial)
        .Set("notify_lang", language)
        .Set("token", token)
        .Set("timezone", zone)
        .SetBool("critical_release", criticalRelease)
        .SetBool("enews_local_promotion", enewsLocalPromotion)
        .SetBool("enews", enews);
    if (country) request.Set("country", country);
    const char* body = request.Send("failed to send https request. err=[0x%04X %s:%d]");
    if (MapLibKivoCenterErrorCode(body) != KIVO_ERR_SUCCESS)
      op.Stop(kKeepCode, "Failed to register %s, resp=%s", Redact(email).c_str(), Redact(body).c_str());
    return 0;
  });
}
