// What the tests of tokens share: a device whose client "lum" has a token set that the identity host knows.
#pragma once

#include <varnkivo/pkce_client.h>

#include <functional>
#include <string>

#include "account/account_bench.h"

namespace tokentest {

using namespace accounttest;
using namespace testsupport;

constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kLoginConfig[] = "/usr/varn/etc.defaults/varnholt-account/config/pkce_login.conf";
constexpr char kTokenPath[] = "oauth2/token";
constexpr char kGrantPath[] = "migration/api/v1/device/core/authorization_code/grant";
constexpr char kLogoutPath[] = "device/api/logout";
constexpr int kHour = 3600;

struct TokenBench : Bench {
  TokenBench() { device.SetTime(kNow); }

  /// Stores a set as issued `age` seconds ago, and forbids its tokens in the log.
  kivosim::TokenSet StoreTokens(int age);
  /// The client "lum" with its configuration.
  std::unique_ptr<varnkivo::PkceClient> Client() const;
};

/// The configuration that the device's own template gives.
Json::Value Config();
inline void WriteTokenFile(const std::string& content) { WritePrivateFile(kTokenFile, content); }
/// Names of what lies in the private folder, the record's and the API key's files left out.
std::vector<std::string> TokenFiles();
/// "METHOD TARGET HOST BODY" of each request, with the parameters decoded.
std::vector<std::string> Sent(const Cloud& cloud);

/// What a call came to: "value", or "code N: MESSAGE", or "bad_cast".
std::string Result(const std::function<std::string()>& call);

}  // namespace tokentest
