// Has the account host grant a code to the monitoring service, with the token of the package "pulsewatch". Touches what
// that package's client touches; keeps nothing.
#include "account_pulse_watch_service.h"

#include "account_service.h"
#include "internal/json_utils.h"
#include "internal/string_utils.h"
#include "kivo_exception.h"
#include "package_pkce_client.h"
#include "web_request.h"

namespace varnkivo {
namespace {

constexpr const char* kPackage = "pulsewatch";

}  // namespace

class AccountPulseWatchServiceImpl {
 public:
  std::string Grant(const std::string& clientId, const std::string& scope, const std::string& redirectUrl,
                    const std::string& state) const {
    RequireHeaderValue(clientId, KIVO_ERR_BAD_PARAM);
    const std::string token = PackagePkceClient(kPackage).GetAccessToken();
    const WebAnswer answer =
        WebPost(AccountService().GetAccountHost() + "/oauth2/api/v1/device/pulsewatch/authorization_code/grant",
                {{"X-Client-ID", clientId}, {"Authorization", "Bearer " + RequireHeaderValue(token, KIVO_ERR_TOKEN)}},
                {{"client_id", clientId}, {"redirect_url", redirectUrl}, {"state", state}, {"scopes[]", scope}});
    if (!answer.arrived)
      throw KivoException(KIVO_ERR_RESPONSE, format("Failed to grant pulsewatch, reqcode=%d, reqmsg=%s", answer.code,
                                                    answer.message.c_str()));
    if (answer.status != 200)
      throw KivoException(KIVO_ERR_RESPONSE, format("Failed to grant pulsewatch, code=%d, resp=%s", answer.status,
                                                    answer.Shown().c_str()));
    const Json::Value reply = ParseAnswer(answer.body);
    const std::optional<std::string> code =
        HasMember(reply, "grant_code") ? TextMember(reply, "grant_code") : std::nullopt;
    if (!code)
      throw KivoException(KIVO_ERR_RESPONSE, format("Failed to parse pulsewatch grant resp, code=%d, resp=%s",
                                                    answer.status, answer.Shown().c_str()));
    return redirectUrl + "?" + EncodeQuery({{"scope", scope}, {"state", state}, {"code", *code}});
  }
};

AccountPulseWatchService::AccountPulseWatchService() : impl_(new AccountPulseWatchServiceImpl) {}
AccountPulseWatchService::~AccountPulseWatchService() = default;  // here, where the implementation is complete
std::string AccountPulseWatchService::Grant(const std::string& clientId, const std::string& scope,
                                            const std::string& redirectUrl, const std::string& state) const {
  return impl_->Grant(clientId, scope, redirectUrl, state);
}

}  // namespace varnkivo
