// What the tests of tokens share beside the bench: where is asked for what, and a code as a browser brings it back.
#pragma once

#include <varnkivo/account_pkce_service.h>

#include "account/account_bench.h"

namespace pkcetest {

using namespace accounttest;

constexpr char kGrantPath[] = "migration/api/v1/device/core/authorization_code/grant";
constexpr char kAuthKeyPath[] = "oauth2/api/v1/device/core/authkey/exchange";
constexpr char kConfigPath[] = "oauth2/api/v1/device/package/config/pkce/client";
constexpr char kPackageGrant[] = "oauth2/api/v1/device/package/authorization_code/grant";
constexpr char kWatchGrant[] = "oauth2/api/v1/device/pulsewatch/authorization_code/grant";
constexpr char kCache[] = "/tmp/account_photos_pkce_client.conf";
constexpr char kWatchCache[] = "/tmp/account_pulsewatch_pkce_client.conf";

inline varnkivo::ParamPkceLogin FinishedBrowserLogin(const Bench& bench) {
  static const char kVerifier[] = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";  // the pair of RFC 7636, appendix B
  const std::string redirect = varnkivo::AccountPkceService().GetLoginPkceConfig()["login_redirect_uri"].asString();
  return {
      "",
      bench.cloud->IssueCode(kEmail, "kivo-device", kSerial, redirect, "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"),
      kVerifier, redirect};
}

}  // namespace pkcetest
