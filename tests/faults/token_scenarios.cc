// Classes throw where exported functions return -1: of what they may throw -1 is made here, so that anything else
// shows.
#include "token_scenarios.h"

#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include <chrono>
#include <fstream>
#include <new>
#include <stdexcept>

#include "cloud_process.h"
#include "device.h"
#include "sim/digest.h"

namespace faults {
namespace {

constexpr char kRedirectUri[] = "https://account.kivo.example/device/login/callback";
constexpr char kReport[] = "device/api/report";
constexpr char kClient[] = "kivo-device";
constexpr uid_t kAccountId = 934;

std::string gLine;

void StoreTokens(kivosim::Simulator& cloud, const std::string& name, std::chrono::hours age) {
  const std::string path = kPrivate + name + "_token.json";
  std::ofstream(path, std::ios::binary) << cloud.IssueTokens(kEmail, kClient, kSerial, age).fileText;
  if (chmod(path.c_str(), 0600) != 0 || chown(path.c_str(), kAccountId, kAccountId) != 0)
    throw std::runtime_error("a token file cannot be prepared");
}

void AnswerAlways(kivosim::Simulator& cloud, const std::string& path, const std::string& body) {
  kivosim::Fault fault = kivosim::Fault::Answer(200, body);
  fault.skipHandler = true;
  fault.times = -1;
  cloud.QueueFault(path, fault);
}

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

}  // namespace

std::string PreparePkceLogin(kivosim::Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", std::chrono::hours(0));
  const auto code = [&] { return cloud.IssueCode(kEmail, kClient, kSerial, kRedirectUri, kivosim::S256(kVerifier)); };
  const std::string first = code();
  return first + "\n" + code();
}

std::string PrepareRenewal(kivosim::Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", std::chrono::hours(2));
  return "";
}

std::string PrepareRescue(kivosim::Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", std::chrono::hours(2));
  if (!cloud.RevokeTokens(kEmail)) throw std::runtime_error("nothing to revoke");
  return "";
}

std::string PrepareLogout(kivosim::Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", std::chrono::hours(0));
  StoreTokens(cloud, "photos", std::chrono::hours(0));
  if (!VARNKIVOAccountRegisterCrond()) throw std::runtime_error("no report job");
  return "";
}

std::string PrepareReport(kivosim::Simulator& cloud, const std::string& text) {
  AnswerAlways(cloud, kReport, R"({"code":"good"})");
  if (!VARNKIVOAccountRegisterCrond()) throw std::runtime_error("no report job");
  return PrepareRenewal(cloud, text);
}

std::string PrepareRefusedReport(kivosim::Simulator& cloud, const std::string& text) {
  AnswerAlways(cloud, kReport, R"({"code":"badauth"})");
  return PrepareLogout(cloud, text);
}

std::string PreparePackage(kivosim::Simulator& cloud, const std::string&) {
  StoreTokens(cloud, "lum", std::chrono::hours(0));
  return "";
}

std::string PrepareRegistration(kivosim::Simulator& cloud, const std::string&) {
  AnswerAlways(cloud, "device/api/user/register", "good");
  return "";
}

void UseLine(const std::string& line) { gLine = line; }

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

int Report() { return VARNKIVOReportInfo(); }
int RefusedReport() { return VARNKIVOReportInfo() == 0 || VARNKIVOErrGet() == KIVO_ERR_AUTH ? 0 : -1; }

int Logout() { return VARNKIVOAccountLogout(true); }
int LogoutAgain() {
  const int result = VARNKIVOAccountLogout(true);
  return result < 0 && VARNKIVOErrGet() == KIVO_ERR_AUTH ? VARNKIVOAccountLogout(false) : result;
}

int LogoutLocally() { return VARNKIVOAccountLogout(false); }

std::string KnowsDevice(kivosim::Simulator& cloud, const std::string&) {
  return cloud.FindAccount(kEmail)->authKeys.count(kSerial) != 0 ? "yes" : "no";
}

std::string IsPresent(kivosim::Simulator& cloud, const std::string& refreshToken) {
  const std::string hash = kivosim::HashPrefix(refreshToken);
  for (const kivosim::TokenFamily& family : cloud.TokenFamilies())
    if (family.refreshHash == hash && !family.revoked) return "yes";
  return "no";
}

}  // namespace faults
