// "/oauth2/api/v1/device/package/..." of the account host: the client configuration of an installed package, and a code
// for that client, both against the device's own access token. 404 says that there is no such package (any more).
#include "sim/handlers/authorization_request.h"
#include "sim/handlers/device_request.h"
#include "sim/handlers/form_request.h"
#include "sim/handlers/grant_request.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

const char kScope[] = "openid offline_access profile email";

Reply NoPackage() { return {{404, "{\"code\":\"package_not_found\"}"}}; }

Json::Value Configuration(const OAuthClient& client, const std::string& accountHost) {
  const std::string account = "https://" + accountHost;
  const std::string identity = "https://identity" + accountHost.substr(accountHost.find_first_of("-."));
  const std::string callbacks = account + "/package/" + client.package;
  Json::Value config;
  config["client_id"] = client.id;
  config["scope"] = kScope;
  config["audience"] = account;
  config["auth_endpoint"] = identity + "/oauth2/auth";
  config["token_endpoint"] = identity + "/oauth2/token";
  config["end_session_endpoint"] = identity + "/oauth2/sessions/logout";
  config["login_redirect_uri"] = callbacks + "/login/callback";
  config["logout_redirect_uri"] = callbacks + "/logout/callback";
  return config;
}

Reply Configure(const Request& request, CloudState& state) {
  const std::string problem = CheckQuery(request, {{"package_name"}});
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  Grantee device;
  if (const std::optional<Reply> refusal = RefuseBearer(request, state, "", device)) return *refusal;
  const std::optional<OAuthClient> client = state.OAuth().PackageClient(request.Param("package_name"));
  if (!client) return NoPackage();
  return {{200, JsonText(Configuration(*client, request.host))}};
}

std::string CheckGrant(const Request& request, const CloudState& state) {
  std::string problem = CheckForm(request, {{"client_id"},
                                            {"redirect_url"},
                                            {"state"},
                                            {"code_challenge", Parameter::kFilled, {}, IsS256},
                                            {"scopes[]", Parameter::kRepeated}});
  if (problem.empty()) problem = CheckClientHeader(request, request.Param("client_id"));
  if (problem.empty()) problem = CheckRedirect(request, state);
  return problem.empty() && ScopeOf(request) != kScope ? "the scopes are \"" + ScopeOf(request) + "\"" : problem;
}

Reply Grant(const Request& request, CloudState& state) {
  const std::string problem = CheckGrant(request, state);
  if (!problem.empty()) return {CodeAnswer("badparam"), problem};
  const std::string id = request.Param("client_id"), package = state.OAuth().Client(id)->package;
  if (package.empty()) return {CodeAnswer("badparam"), "\"" + id + "\" is no client of a package"};
  Grantee device;
  if (const std::optional<Reply> refusal = RefuseBearer(request, state, "", device)) return *refusal;
  if (!state.OAuth().PackageClient(package)) return NoPackage();
  return {GrantCode({device.userId, id, device.serial, kScope}, request, state)};
}

}  // namespace

void AddPackageGrant(std::vector<Route>& routes) {
  const std::string path = "/oauth2/api/v1/device/package";
  routes.push_back({HostFamily::kAccount, path + "/config/pkce/client", Configure});
  routes.push_back({HostFamily::kAccount, path + "/authorization_code/grant", Grant});
}

}  // namespace kivosim
