// The table of operations. Each begins with a record that differs from the one it leaves in as much as possible, so
// that every write shows. What prepares runs in the cloud's process: tokens are its to give. Classes throw where
// exported functions return -1: of what they may throw -1 is made here, so that anything else shows.
#include "scenarios.h"

#include <json/value.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>
#include <varnkivo/varnkivo.h>

#include <cstring>
#include <new>
#include <stdexcept>

#include "device.h"
#include "sim/digest.h"

namespace faults {
namespace {

using kivosim::Simulator;

constexpr char kOldAuthKey[] = "AuthKey-9876543210-of-bob";
constexpr char kVerifier[] = "verifier-0123456789-0123456789-0123456789-01";
constexpr char kRedirectUri[] = "https://account.kivo.example/device/login/callback";
constexpr char kClient[] = "kivo-device";
constexpr int kLongAgo = 1000000000;
constexpr std::chrono::hours kGood(0), kExpired(2);

std::string gLine;

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

void StoreTokens(Simulator& cloud, const std::string& name, std::chrono::hours age) {
  WritePrivateFile(name + "_token.json", cloud.IssueTokens(kEmail, kClient, kSerial, age).fileText);
}

void AnswerAlways(Simulator& cloud, const std::string& path, const std::string& body) {
  kivosim::Fault fault = kivosim::Fault::Answer(200, body);
  fault.skipHandler = true;
  fault.times = -1;
  cloud.QueueFault(path, fault);
}

void RegisterReport() {
  if (!VARNKIVOAccountRegisterCrond()) throw std::runtime_error("no report job");
}

/// A token and two codes, a line each.
std::string PreparePkceLogin(Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", kGood);
  const auto code = [&] { return cloud.IssueCode(kEmail, kClient, kSerial, kRedirectUri, kivosim::S256(kVerifier)); };
  const std::string first = code();
  return first + "\n" + code();
}

std::string PrepareRenewal(Simulator& cloud, const std::string&) { return StoreTokens(cloud, "lum", kExpired), ""; }

std::string PrepareRescue(Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", kExpired);
  if (!cloud.RevokeTokens(kEmail)) throw std::runtime_error("nothing to revoke");
  return "";
}

std::string PrepareReport(Simulator& cloud, const std::string&) {
  AnswerAlways(cloud, "device/api/report", R"({"code":"good"})");
  RegisterReport();
  return StoreTokens(cloud, "lum", kExpired), "";
}

std::string PrepareLogout(Simulator& cloud, const std::string&) {
  for (const char* client : {"lum", "photos"}) StoreTokens(cloud, client, kGood);
  return RegisterReport(), "";
}

std::string PrepareRefusedReport(Simulator& cloud, const std::string& text) {
  AnswerAlways(cloud, "device/api/report", R"({"code":"badauth"})");
  return PrepareLogout(cloud, text);
}

/// An account centre that registers everybody, also twice.
std::string PrepareRegistration(Simulator& cloud, const std::string&) {
  return AnswerAlways(cloud, "device/api/user/register", "good"), "";
}

std::string PreparePackage(Simulator& cloud, const std::string&) { return StoreTokens(cloud, "lum", kGood), ""; }

template <class Call>
int ResultOf(Call call) {
  try {
    call();
    return 0;
  } catch (const varnkivo::KivoException&) {
    return -1;
  } catch (const std::bad_alloc&) {
    return -1;
  }
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

int Register() { return VARNKIVOAccountRegister("eve@example.com", kPassword, "Eve", true, true, false, "DEU"); }

int PkceLogin() {
  return ResultOf([] { varnkivo::AccountPkceService().Login({"", gLine, kVerifier, kRedirectUri}); });
}

int GetToken() {
  return ResultOf([] {
    if (varnkivo::AccountPkceService().GetAccessToken().empty()) throw std::logic_error("an empty token");
  });
}

int GetPackageToken() {
  return ResultOf([] {
    if (varnkivo::PackagePkceClient("photos").GetAccessToken().empty()) throw std::logic_error("an empty token");
  });
}

/// 0 when it was refused, or when nobody is signed in.
int RefusedReport() { return VARNKIVOReportInfo() == 0 || VARNKIVOErrGet() == KIVO_ERR_AUTH ? 0 : -1; }

int Logout() { return VARNKIVOAccountLogout(true); }

/// The cloud refuses a device that it has forgotten; what is left to do then needs nobody's leave.
int LogoutAgain() {
  const int result = Logout();
  return result < 0 && VARNKIVOErrGet() == KIVO_ERR_AUTH ? LogoutLocally() : result;
}

}  // namespace

void UseLine(const std::string& line) { gLine = line; }

int LogoutLocally() { return VARNKIVOAccountLogout(false); }

const std::vector<Scenario>& Scenarios() {
  constexpr auto kNone = Tokens::kNone, kReplaced = Tokens::kReplaced, kRemoved = Tokens::kRemoved;
  constexpr auto kNever = Loss::kNever, kByFailure = Loss::kByFailure, kBySignOut = Loss::kBySignOut;
  static const std::string bob = Record("bob@example.com", "1002", kOldAuthKey);
  static const std::string ann = Record(kEmail, kUserId, kAuthKey);
  static const std::vector<std::string> identity = {"kivoIDSerial", "lu_auth_key"};
  static const std::vector<Scenario> scenarios = {
      {"login", 0, bob, &Login, true, kNone, kNever, nullptr, nullptr, false, identity},
      {"first-login", 0, "", &Login, true, kNone, kNever, nullptr, nullptr, false, identity},
      {"key-login", 934, "", &KeyLogin, true},
      {"query", 1000, ann, &Query, true},
      {"set", 1000, bob, &Set, true},
      {"remove", 1000, ann, &VARNKIVOAccountRemove, false},
      {"pkce-login", 0, bob, &PkceLogin, true, kReplaced, kByFailure, &PreparePkceLogin},
      {"renewal", 1000, ann, &GetToken, true, kReplaced, kNever, &PrepareRenewal},
      {"rescue", 934, ann, &GetToken, true, kReplaced, kBySignOut, &PrepareRescue},
      {"report", 0, ann, &VARNKIVOReportInfo, false, kReplaced, kBySignOut, &PrepareReport},
      {"report-refused", 0, ann, &RefusedReport, false, kRemoved, kNever, &PrepareRefusedReport, &LogoutAgain},
      {"register", 1000, bob, &Register, true, kNone, kNever, &PrepareRegistration, nullptr, true},
      {"package", 934, ann, &GetPackageToken, true, kNone, kNever, &PreparePackage, nullptr, true},
      {"logout", 0, ann, &Logout, false, kRemoved, kNever, &PrepareLogout, &LogoutAgain},
  };
  return scenarios;
}

std::vector<std::string> Secrets() { return {kPassword, kAuthKey, kOldAuthKey, kVerifier}; }

}  // namespace faults
