// Which function answers which path of which host. A path of the cloud is one file in this folder with one function
// that adds its routes, and one line in routes.cc. Handlers hold no state of their own.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "sim/cloud_state.h"
#include "sim/message.h"

namespace kivosim {

enum class HostFamily { kAccount, kIdentity, kPayment };

/// An answer, and what is wrong with the request ("" when nothing is).
struct Reply {
  Reply(Response answer, std::string wrong = {}) : response(std::move(answer)), complaint(std::move(wrong)) {}
  Response response;
  std::string complaint;
};

using Handler = std::function<Reply(const Request&, CloudState&)>;

struct Route {
  HostFamily family;
  std::string path;
  Handler handler;
};

/// Answers by the table. An unknown host or path is a complaint, and answered 404.
Reply Dispatch(const Request& request, CloudState& state);

void AddPasswordLogin(std::vector<Route>& routes);
void AddLaunch(std::vector<Route>& routes);
void AddUserQuery(std::vector<Route>& routes);
void AddUserRegister(std::vector<Route>& routes);
void AddUserUpdate(std::vector<Route>& routes);
void AddReport(std::vector<Route>& routes);
void AddCallbacks(std::vector<Route>& routes);
void AddAuthorize(std::vector<Route>& routes);
void AddToken(std::vector<Route>& routes);
void AddEndSession(std::vector<Route>& routes);
void AddIdentityDocuments(std::vector<Route>& routes);
void AddAuthKeyExchange(std::vector<Route>& routes);
void AddCodeGrant(std::vector<Route>& routes);
void AddDeviceLogout(std::vector<Route>& routes);
void AddPackageGrant(std::vector<Route>& routes);
void AddPulseWatchGrant(std::vector<Route>& routes);
void AddShopSignIn(std::vector<Route>& routes);
void AddShopCatalogue(std::vector<Route>& routes);
void AddShopHistory(std::vector<Route>& routes);

}  // namespace kivosim
