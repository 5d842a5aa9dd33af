// "/oauth2/auth" and "/oauth2/registration" of the identity host: a person's e-mail and password against a code for the
// client. GET shows what to do, POST to the same address does it; the query is checked again each time, nothing is kept
// between the two.
#include <algorithm>

#include "sim/form.h"
#include "sim/handlers/authorization_request.h"
#include "sim/handlers/identity_pages.h"
#include "sim/handlers/routes.h"
#include "sim/random_text.h"

namespace kivosim {
namespace {

using Decide = Response (*)(const AuthorizationRequest&, const Request& form, CloudState&);

Response GiveCode(const AuthorizationRequest& request, const Account& account, CloudState& state) {
  if (!account.refusal.empty())
    return RedirectBack(request, {{"error", "access_denied"}, {"error_description", account.refusal}});
  const Grantee to{account.userId, request.clientId, SerialOfScope(request.scope), request.scope};
  return RedirectBack(request, {{"code", state.OAuth().IssueCode({to, request.redirectUri, request.challenge})}});
}

Response SignIn(const AuthorizationRequest& request, const Request& form, CloudState& state) {
  const std::string email = form.Param("email");
  const std::optional<Account> account = state.Find(email);
  if (!account || account->email != email || account->password != form.Param("password"))
    return SignInPage(request, 401, "Wrong e-mail or password.");
  return GiveCode(request, *account, state);
}

Response Register(const AuthorizationRequest& request, const Request& form, CloudState& state) {
  const std::string email = form.Param("email");
  if (email.find('@') == std::string::npos) return SignInPage(request, 400, "That is no e-mail address.");
  if (state.Find(email)) return SignInPage(request, 400, "There is an account of this e-mail address already.");
  const Account account{email, form.Param("password"), "u-" + RandomText(12)};
  state.AddAccount(account);
  return GiveCode(request, account, state);
}

Response Post(const AuthorizationRequest& request, const Request& http, CloudState& state, Decide decide) {
  Request form;
  form.form = ParseBrowserForm(http.body);
  if (form.Param("decision") == "deny") return RedirectBack(request, {{"error", "access_denied"}});
  if (form.Param("email").empty() || form.Param("password").empty())
    return SignInPage(request, 400, "E-mail and password are needed.");
  return decide(request, form, state);
}

Reply Answer(const Request& http, CloudState& state, Decide decide) {
  if (http.method != "GET" && http.method != "POST")
    return {ErrorPage("method is " + http.method), "method is " + http.method};
  const AuthorizationRequest request = ReadAuthorizationRequest(http, state.OAuth());
  if (request.problem.empty())
    return {http.method == "GET" ? SignInPage(request, 200, "") : Post(request, http, state, decide)};
  if (request.error.empty()) return {ErrorPage(request.problem), request.problem};
  return {RedirectBack(request, {{"error", request.error}, {"error_description", request.problem}}), request.problem};
}

Handler With(Decide decide) {
  return [decide](const Request& request, CloudState& state) { return Answer(request, state, decide); };
}

}  // namespace

void AddAuthorize(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kIdentity, "/oauth2/auth", With(SignIn)});
  routes.push_back({HostFamily::kIdentity, "/oauth2/registration", With(Register)});
}

}  // namespace kivosim
