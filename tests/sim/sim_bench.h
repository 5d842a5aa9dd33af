// A cloud with two accounts, a plain libcurl client that looks at it from outside, and the steps of a sign-in as a
// browser and a device take them. Each step sends exactly the bytes it is given and follows no redirect; nothing is
// checked here.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sim/control.h"
#include "sim/simulator.h"

const std::string kAccount = "https://account.kivo.example", kIdentity = "https://identity.kivo.example";
const std::string kApi = kAccount + "/device/api/", kCore = kAccount + "/oauth2/api/v1/device/";
const std::string kTokenUrl = kIdentity + "/oauth2/token";
const std::string kRedirect = "https%3A%2F%2Faccount.kivo.example%2Fdevice%2Flogin%2Fcallback";
const std::string kSerial = "2130KVN004211";
const std::string kDevice = "lu_sn=2130KVN004211&lu_token=430450fef2cf32aad9ad39f451c755a5";
const std::string kVerifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
const std::string kChallenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
const std::string kAuthUrl =
    kIdentity + "/oauth2/auth?response_type=code&client_id=kivo-device&redirect_uri=" + kRedirect +
    "&scope=openid+offline_access+device.sn%3a" + kSerial +
    "&audience=https%3A%2F%2Faccount.kivo.example&state=a%2fb+c%20~%7E&code_challenge=" + kChallenge +
    "&code_challenge_method=S256";
const std::string kAnn = "email=ann%40example.com&password=correct+horse";
const std::string kLogin = kDevice +
                           "&type=acnt_pw_apikey&email=ann%40example.com&passwd=correct%20horse&serial_no=" + kSerial +
                           "&api_key=k1&mac=02%3A00%3A5e%3A00%3A00%3A01";
const std::string kLogout = "serial_no=" + kSerial + "&auth_key=ak-1";

struct Exchange {
  int curlCode = 0;
  long status = 0;
  std::string head, body;
  double seconds = 0;
};

struct Ask {
  std::string url, form = "-";  // "-": GET
  std::vector<std::string> headers = {};
  const char* method = nullptr;  // instead of GET or POST
  long timeoutMs = 60000;
};

Exchange Send(const Ask& ask);
inline Exchange Get(const std::string& url) { return Send({url}); }
inline Exchange Post(const std::string& url, const std::string& form) { return Send({url, form}); }

inline std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);  // throws where it is not there
}

/// A member of the answer's JSON object as text, or "" without one.
std::string Member(const Exchange& exchange, const std::string& name);
std::string Location(const Exchange& exchange);
/// The code that a signed-in browser is sent back with.
std::string NewCode(const std::string& url = kAuthUrl, const std::string& form = kAnn);

inline std::string Client(const std::string& client = "kivo-device") { return "X-Client-ID: " + client; }
inline std::string Bearer(const std::string& token) { return "Authorization: Bearer " + token; }
inline std::string CodeForm(const std::string& code) {
  return "grant_type=authorization_code&client_id=kivo-device&redirect_uri=" + kRedirect + "&code=" + code +
         "&code_verifier=" + kVerifier;
}
inline Exchange ExchangeCode(const std::string& code) { return Send({kTokenUrl, CodeForm(code), {Client()}}); }
inline Exchange Refresh(const std::string& token, const std::string& client = "kivo-device") {
  return Send(
      {kTokenUrl, "grant_type=refresh_token&refresh_token=" + token + "&client_id=" + client, {Client(client)}});
}
inline Exchange ExchangeAuthKey(const std::string& token) {
  return Send({kCore + "core/authkey/exchange", "", {Bearer(token)}});
}

class SimTest : public testing::Test {
 protected:
  void SetUp() override {
    cloud.AddAccount({"ann@example.com", "correct horse", "1001"});
    cloud.AddAccount({"bob@example.com", "pw", "1002"});
    cloud.ChangeAccount("1001", [](kivosim::Account& ann) {
      ann.authKeys[kSerial] = "ak-1";
      ann.purchases = kivosim::ExamplePurchases();
    });
    cloud.Start();
  }
  kivosim::TokenSet Issue(const std::string& user = "1001", const std::string& client = "kivo-device") {
    return cloud.IssueTokens(user, client, kSerial);
  }
  kivosim::Simulator cloud;
};
