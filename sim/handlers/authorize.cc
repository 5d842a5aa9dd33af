// "/oauth2/auth" and "/oauth2/registration" of the identity host: a person's e-mail and password against a code for the
// client. GET shows the form, POST to the same address does it; the query is checked again each time. A browser's form
// asks for consent in between, for which a ticket is kept, never the password. A POST of the two alone is answered at
// once, for those who drive this without a browser.
#include <algorithm>

#include "sim/form.h"
#include "sim/handlers/authorization_request.h"
#include "sim/handlers/identity_pages.h"
#include "sim/handlers/routes.h"
#include "sim/random_text.h"

namespace kivosim {
namespace {

/// One request of a browser: what it asks for by its address, and what was posted with it.
struct Visit {
  const Request& http;
  const AuthorizationRequest request;
  Request form = {};
};

using Decide = Response (*)(const Visit&, CloudState&);

/// What a ticket is good for: this request at this host, and no other.
std::string Binding(const Request& http) { return http.host + http.target; }

Response FormAgain(const Visit& visit, int status, const std::string& problem) {
  const bool registration = visit.http.path == "/oauth2/registration";
  return SignInPage(visit.request, {registration, status, problem, visit.form.Param("email")});
}

Response GiveCode(const Visit& visit, const Account& account, CloudState& state) {
  const AuthorizationRequest& request = visit.request;
  if (!account.refusal.empty())
    return RedirectBack(request, {{"error", "access_denied"}, {"error_description", account.refusal}});
  const Grantee to{account.userId, request.clientId, SerialOfScope(request.scope), request.scope};
  return RedirectBack(request, {{"code", state.OAuth().IssueCode({to, request.redirectUri, request.challenge})}});
}

/// What follows right credentials.
Response Proceed(const Visit& visit, const Account& account, CloudState& state) {
  if (visit.form.Param("ask") != "consent" || !account.refusal.empty()) return GiveCode(visit, account, state);
  return ConsentPage(visit.request, account, state.OAuth().IssueTicket(account.userId, Binding(visit.http)));
}

Response SignIn(const Visit& visit, CloudState& state) {
  const std::string email = visit.form.Param("email");
  const std::optional<Account> account = state.Find(email);
  if (!account || account->email != email || account->password != visit.form.Param("password"))
    return FormAgain(visit, 401, "Wrong e-mail or password.");
  return Proceed(visit, *account, state);
}

Response Register(const Visit& visit, CloudState& state) {
  const std::string email = visit.form.Param("email");
  if (email.find('@') == std::string::npos) return FormAgain(visit, 400, "That is no e-mail address.");
  if (state.Find(email)) return FormAgain(visit, 400, "There is an account of this e-mail address already.");
  const Account account{email, visit.form.Param("password"), "u-" + RandomText(12)};
  state.AddAccount(account);
  return Proceed(visit, account, state);
}

Response Consent(const Visit& visit, CloudState& state) {
  const auto userId = state.OAuth().UseTicket(visit.form.Param("ticket"), Binding(visit.http));
  const std::string decision = visit.form.Param("decision");
  if (decision == "deny") return RedirectBack(visit.request, {{"error", "access_denied"}});
  const std::optional<Account> account = userId ? state.Find(*userId) : std::nullopt;
  if (!account || account->userId != *userId || decision != "allow")
    return FormAgain(visit, 400, "That page was too old, or was used before. Sign in once more.");
  return GiveCode(visit, *account, state);
}

Response Post(Visit visit, CloudState& state, Decide decide) {
  visit.form.form = ParseBrowserForm(visit.http.body);
  if (visit.form.HasParam("ticket")) return Consent(visit, state);
  if (visit.form.Param("decision") == "deny") return RedirectBack(visit.request, {{"error", "access_denied"}});
  if (visit.form.Param("email").empty() || visit.form.Param("password").empty())
    return FormAgain(visit, 400, "E-mail and password are needed.");
  return decide(visit, state);
}

Reply Answer(const Request& http, CloudState& state, Decide decide) {
  if (http.method != "GET" && http.method != "POST")
    return {ErrorPage("method is " + http.method), "method is " + http.method};
  const Visit visit{http, ReadAuthorizationRequest(http, state.OAuth())};
  const AuthorizationRequest& request = visit.request;
  if (request.problem.empty()) return {http.method == "GET" ? FormAgain(visit, 200, "") : Post(visit, state, decide)};
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
