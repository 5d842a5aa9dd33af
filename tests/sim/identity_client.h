// The steps of a sign-in over HTTP as a browser and a device take them, for the tests of the identity side. Each sends
// one request and hands back what came; nothing is checked here.
#pragma once

#include <json/json.h>

#include <sstream>
#include <string>

#include "sim/curl_client.h"

const std::string kAccount = "https://account.kivo.example";
const std::string kIdentity = "https://identity.kivo.example";
const std::string kTokenUrl = kIdentity + "/oauth2/token";
const std::string kRedirect = "https%3A%2F%2Faccount.kivo.example%2Fdevice%2Flogin%2Fcallback";
const std::string kSerial = "2130KVN004211";
const std::string kVerifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
const std::string kChallenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
const std::string kAuthUrl =
    kIdentity + "/oauth2/auth?response_type=code&client_id=kivo-device&redirect_uri=" + kRedirect +
    "&scope=openid+offline_access+device.sn%3a" + kSerial +
    "&audience=https%3A%2F%2Faccount.kivo.example&state=a%2fb+c%20~%7E&code_challenge=" + kChallenge +
    "&code_challenge_method=S256";
const std::string kAnn = "email=ann%40example.com&password=correct+horse";

inline std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  return at == std::string::npos ? "no \"" + from + "\" in " + text : text.replace(at, from.size(), to);
}

/// A member of the answer's JSON object as text, or "" without one.
inline std::string Member(const Exchange& exchange, const std::string& name) {
  Json::Value json;
  std::string problem;
  std::istringstream stream(exchange.body);
  const bool read = Json::parseFromStream(Json::CharReaderBuilder(), stream, &json, &problem);
  return read && json.isObject() ? json[name].asString() : "";
}

inline std::string Location(const Exchange& exchange) {
  const std::size_t start = exchange.head.find("Location: ");
  return start == std::string::npos ? ""
                                    : exchange.head.substr(start + 10, exchange.head.find('\r', start) - start - 10);
}

/// The code that a signed-in browser is sent back with.
inline std::string NewCode(const std::string& url = kAuthUrl, const std::string& form = kAnn) {
  const std::string location = Location(Post(url, form));
  const std::size_t start = location.find("code=") + 5;
  return location.substr(start, location.find('&', start) - start);
}

inline CurlOptions ClientHeader(const std::string& client = "kivo-device") { return {{"X-Client-ID: " + client}}; }

inline std::string CodeForm(const std::string& code) {
  return "grant_type=authorization_code&client_id=kivo-device&redirect_uri=" + kRedirect + "&code=" + code +
         "&code_verifier=" + kVerifier;
}
inline Exchange ExchangeCode(const std::string& code) { return Post(kTokenUrl, CodeForm(code), ClientHeader()); }

inline std::string RefreshForm(const std::string& token, const std::string& client = "kivo-device") {
  return "grant_type=refresh_token&refresh_token=" + token + "&client_id=" + client;
}
inline Exchange Refresh(const std::string& token) { return Post(kTokenUrl, RefreshForm(token), ClientHeader()); }

inline Exchange ExchangeAuthKey(const std::string& accessToken) {
  return Post(kAccount + "/oauth2/api/v1/device/core/authkey/exchange", "", {{"Authorization: Bearer " + accessToken}});
}
