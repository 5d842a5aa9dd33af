// Tells which services of this device are tied to an account already. Reads the credentials of the shop, the relay's
// configuration and the dynamic DNS tool; touches nothing. A source that has nothing to say is no failure.
#include "internal/json_utils.h"
#include "internal/log.h"
#include "internal/operation.h"
#include "kivo_exception.h"
#include "varnkivo.h"

#include <json/json.h>

#include <cstdio>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_account_scan_existing";
constexpr const char* kRelayConfig = "/usr/varn/etc/varnrelayd/varnrelayd.conf";
constexpr const char* kDdnsTool = "/usr/varn/sbin/varnddnsinfo";
constexpr int kOpenLine = 96, kExecuteLine = 103;

void AddService(Json::Value& result, const std::string& account, const char* type, const Json::Value& value) {
  Json::Value service(Json::objectValue);
  service["type"] = type;
  service["value"] = value;
  result[account]["services"].append(service);
}

int ScanPackage(Json::Value& result) {
  AccountCopy credentials;
  if (VARNPaymentKivoAccountGet(&credentials) >= 0)
    AddService(result, credentials.email, "package", "Antivirus by McAfee");
  return 0;
}

void ScanRelay(Json::Value& result) {
  Json::Value config;
  try {
    config = ReadJsonFile(kRelayConfig);
  } catch (const KivoException&) {  // no relay
    return;
  }
  if (!HasMember(config, "server_alias") || !HasMember(config["server_alias"], "alias")) return;
  if (!HasMember(config, "server_kivo") || !HasMember(config["server_kivo"], "account")) return;
  const Json::Value& account = config["server_kivo"]["account"];
  if (account.isString() && account != "")
    AddService(result, account.asString(), "farlink", config["server_alias"]["alias"]);
}

/// The first line that the tool prints, its newline included; empty where it prints none.
std::string AskDdnsTool(const char* option) {
  FILE* const pipe = VLIBCPopen(kDdnsTool, "r", option, static_cast<const char*>(nullptr));
  if (!pipe) {
    LogError({kSource, kOpenLine}, "Failed to open pipe");
    return "";
  }
  char line[1024] = "";
  const bool wasRead = std::fgets(line, sizeof line, pipe) != nullptr, isBroken = std::ferror(pipe) != 0;
  const int status = VLIBCPclose(pipe);
  if (wasRead || (!isBroken && status == 0)) return line;
  LogError({kSource, kExecuteLine}, "Failed to execute ddns command, option=%s", option);
  return "";
}

int ScanDdns(Json::Value& result) {
  const std::string account = AskDdnsTool("--get-varn-account");
  const std::string hostName = account.empty() ? "" : AskDdnsTool("--get-varn-hostname");
  if (!hostName.empty()) AddService(result, account, "ddns", hostName);
  return 0;
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountScanExisting(Json::Value& result) {
  using namespace varnkivo;
  return RunOperation(kSource, [&](Operation&) {
    result = Json::Value(Json::objectValue);
    if (ScanPackage(result) < 0) return -1;
    ScanRelay(result);
    if (ScanDdns(result) < 0) return -1;
    return 0;
  });
}
