// The texts, in plain words for people who drive the identity host with an HTTP client.
#include "sim/handlers/identity_pages.h"

namespace kivosim {
namespace {

Response Page(int status, const std::string& text) {
  return {status, text, "text/plain; charset=utf-8", {{"Cache-Control", "no-store"}}};
}

}  // namespace

Response SignInPage(const AuthorizationRequest& request, int status, const std::string& problem) {
  return Page(status, (problem.empty() ? "" : problem + "\n") + "Sign in for " + request.clientId +
                          ": POST \"email\" and \"password\" as a form to this address, or \"decision\" = \"deny\".\n");
}

Response ErrorPage(const std::string& problem) { return Page(400, "This sign-in cannot go on: " + problem + "\n"); }

Response SignedOutPage() { return Page(200, "Signed out.\n"); }

}  // namespace kivosim
