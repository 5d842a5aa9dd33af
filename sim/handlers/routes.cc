// The routing table, and the names of the hosts. A request is for the host that its Host header names; the name of the
// handshake has to agree.
#include "sim/handlers/routes.h"

#include <optional>

#include "sim/simulator.h"

namespace kivosim {
namespace {

const std::vector<Route>& Routes() {
  static const auto& routes = *new const std::vector<Route>([] {  // never destroyed: a test may end while we serve
    std::vector<Route> all;
    AddPasswordLogin(all);
    AddLaunch(all);
    AddUserQuery(all);
    AddUserRegister(all);
    AddUserUpdate(all);
    AddReport(all);
    AddCallbacks(all);
    AddAuthorize(all);
    AddToken(all);
    AddEndSession(all);
    AddIdentityDocuments(all);
    AddAuthKeyExchange(all);
    AddCodeGrant(all);
    AddDeviceLogout(all);
    AddPackageGrant(all);
    AddPulseWatchGrant(all);
    AddShopSignIn(all);
    AddShopCatalogue(all);
    AddShopHistory(all);
    return all;
  }());
  return routes;
}

std::optional<HostFamily> FamilyOf(const std::string& host) {
  const std::vector<std::string>& hosts = Simulator::Hosts();
  for (std::size_t i = 0; i < hosts.size(); ++i)
    if (hosts[i] == host) return static_cast<HostFamily>(i / 2);
  return std::nullopt;
}

Reply NotFound(const std::string& complaint) { return {{404, "{\"code\":\"badparam\"}"}, complaint}; }

}  // namespace

const std::vector<std::string>& Simulator::Hosts() {  // two of each family, in the order of HostFamily
  static const auto& hosts = *new const std::vector<std::string>{"account.kivo.example",  "account-test.kivo.example",
                                                                 "identity.kivo.example", "identity-test.kivo.example",
                                                                 "payment.kivo.example",  "payment-test.kivo.example"};
  return hosts;
}

Reply Dispatch(const Request& request, CloudState& state) {
  const std::optional<HostFamily> family = FamilyOf(request.host);
  if (!family) return NotFound("no such host: \"" + request.host + "\"");
  if (request.sni != request.host) return NotFound("handshake was for \"" + request.sni + "\"");
  for (const Route& route : Routes())
    if (route.family == *family && route.path == request.path) return route.handler(request, state);
  return NotFound("no such path on " + request.host);
}

}  // namespace kivosim
