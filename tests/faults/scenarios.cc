// The table of operations. Each begins with a record that differs from the one it leaves in as much as possible, so
// that every write shows.
#include "scenarios.h"

#include <json/value.h>
#include <varnkivo/varnkivo.h>

#include <cstring>

#include "cloud_process.h"
#include "token_scenarios.h"

namespace faults {
namespace {

constexpr char kOldAuthKey[] = "AuthKey-9876543210-of-bob";
constexpr int kLongAgo = 1000000000;

/// A record as a query leaves it.
std::string Record(const char* email, const char* userId, const char* authKey) {
  std::string text;
  const auto line = [&](const char* key, const char* value) { text += std::string(key) + "=\"" + value + "\"\n"; };
  line("kivoIDSerial", userId);
  line("lu_auth_key", authKey);
  line("kivoID", email);
  for (const char* key :
       {"full_name", "country", "timezone", "notify_language", "critical_version_list", "critical_version_domain",
        "activated", "disabled", "enews", "enews_local_promotion", "critical_release", "realname_validation_pass"})
    line(key, "earlier");
  line("last_query_time", "1000000000");
  return text;
}

int Login() {
  Json::Value response;
  return VARNKIVOAccountLogin(kEmail, kPassword, response, false);
}

int KeyLogin() {
  Json::Value response;
  return VARNKIVOAccountLoginByKey(kUserId, kAuthKey, response);
}

int Query() {
  Json::Value profile;
  return VARNKIVOAccountQueryInfo(profile, true, false);
}

int Set() {
  _tag_kivo_INFO_ info = {};
  std::strcpy(info.email, kEmail);
  std::strcpy(info.userId, kUserId);
  std::strcpy(info.authKey, kAuthKey);
  for (auto* field : {&info.country, &info.timezone, &info.notifyLanguage}) std::strcpy(*field, "later");
  info.activated = info.disabled = info.enews = info.criticalRelease = info.enewsLocalPromotion = 1;
  info.lastQueryTime = kLongAgo + 1;
  return VARNKIVOAccountSet(&info);
}

int Remove() { return VARNKIVOAccountRemove(); }

int Register() { return VARNKIVOAccountRegister("eve@example.com", kPassword, "Eve", true, true, false, "DEU"); }

}  // namespace

const std::vector<Scenario>& Scenarios() {
  static const std::string bob = Record("bob@example.com", "1002", kOldAuthKey);
  static const std::string ann = Record(kEmail, kUserId, kAuthKey);
  static const std::vector<std::string> identity = {"kivoIDSerial", "lu_auth_key"};
  static const std::vector<Scenario> scenarios = {
      {"login", 0, bob, &Login, identity, true},
      {"first-login", 0, "", &Login, identity, true},
      {"key-login", 934, "", &KeyLogin, {}, true},
      {"query", 1000, ann, &Query, {}, true},
      {"set", 1000, bob, &Set, {}, true},
      {"remove", 1000, ann, &Remove, {}, false},
      {"pkce-login", 0, bob, &PkceLogin, {}, true, Tokens::kReplaced, Loss::kByFailure, &PreparePkceLogin},
      {"renewal", 1000, ann, &GetToken, {}, true, Tokens::kReplaced, Loss::kNever, &PrepareRenewal},
      {"rescue", 934, ann, &GetToken, {}, true, Tokens::kReplaced, Loss::kBySignOut, &PrepareRescue},
      {"report", 0, ann, &Report, {}, false, Tokens::kReplaced, Loss::kBySignOut, &PrepareReport},
      {"report-refused",
       0,
       ann,
       &RefusedReport,
       {},
       false,
       Tokens::kRemoved,
       Loss::kNever,
       &PrepareRefusedReport,
       &LogoutAgain},
      {"register", 1000, bob, &Register, {}, true, Tokens::kNone, Loss::kNever, &PrepareRegistration, nullptr, true},
      {"package", 934, ann, &GetPackageToken, {}, true, Tokens::kNone, Loss::kNever, &PreparePackage, nullptr, true},
      {"logout", 0, ann, &Logout, {}, false, Tokens::kRemoved, Loss::kNever, &PrepareLogout, &LogoutAgain},
  };
  return scenarios;
}

std::vector<std::string> Secrets() { return {kPassword, kAuthKey, kOldAuthKey, kVerifier}; }

}  // namespace faults
