// What the identity host publishes of itself: its addresses, and the key that its id tokens are signed with.
#include "sim/handlers/routes.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

Json::Value ListOf(const char* text) {
  Json::Value list(Json::arrayValue);
  list.append(text);
  return list;
}

Reply Configuration(const Request& request, CloudState&) {
  const std::string issuer = "https://" + request.host;
  Json::Value json;
  json["issuer"] = issuer;
  json["authorization_endpoint"] = issuer + "/oauth2/auth";
  json["token_endpoint"] = issuer + "/oauth2/token";
  json["end_session_endpoint"] = issuer + "/oauth2/sessions/logout";
  json["jwks_uri"] = issuer + "/.well-known/jwks.json";
  json["response_types_supported"] = ListOf("code");
  json["subject_types_supported"] = ListOf("public");
  json["code_challenge_methods_supported"] = ListOf("S256");
  json["id_token_signing_alg_values_supported"] = ListOf("ES256");
  json["grant_types_supported"] = ListOf("authorization_code");
  json["grant_types_supported"].append("refresh_token");
  return {{200, JsonText(json)}};
}

Reply KeySet(const Request&, CloudState& state) { return {{200, JsonText(state.Signer().KeySet())}}; }

}  // namespace

void AddIdentityDocuments(std::vector<Route>& routes) {
  routes.push_back({HostFamily::kIdentity, "/.well-known/openid-configuration", Configuration});
  routes.push_back({HostFamily::kIdentity, "/.well-known/jwks.json", KeySet});
}

}  // namespace kivosim
