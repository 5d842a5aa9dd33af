// "/oauth2/sessions/logout" of the identity host: ends the person's session in the browser. There is none here, so all
// it does is lead back to where the client wants the browser to go. Tokens are not touched.
#include <algorithm>

#include "sim/form.h"
#include "sim/handlers/authorization_request.h"
#include "sim/handlers/identity_pages.h"
#include "sim/handlers/routes.h"

namespace kivosim {
namespace {

bool IsKnown(const std::string& uri, const CloudState& state) {
  const std::vector<OAuthClient> clients = state.OAuth().Clients();
  return std::any_of(clients.begin(), clients.end(), [&](const OAuthClient& client) {
    return std::find(client.logoutUris.begin(), client.logoutUris.end(), uri) != client.logoutUris.end();
  });
}

Reply Answer(const Request& request, CloudState& state) {
  Request decoded;
  decoded.query = ParseBrowserForm(request.target.substr(std::min(request.path.size() + 1, request.target.size())));
  decoded.form = ParseBrowserForm(request.body);
  const std::string uri = decoded.Param("post_logout_redirect_uri");
  if (uri.empty()) return {SignedOutPage()};
  const std::string problem = "\"" + uri + "\" is no post_logout_redirect_uri of any client";
  if (!IsKnown(uri, state)) return {ErrorPage(problem), problem};
  const std::string query = decoded.HasParam("state") ? FormText({{"state", decoded.Param("state")}}) : "";
  return {{303, "", "", {{"Location", WithQuery(uri, query)}}}};
}

}  // namespace

void AddEndSession(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kIdentity, "/oauth2/sessions/logout", Answer});
}

}  // namespace kivosim
