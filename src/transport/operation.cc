// The steps that operations share. Each failing one logs under the operation's own source name and line.
// The platform's last error is read before anything else is called, since clean-up may change it.
#include "internal/operation.h"

#include "internal/log.h"
#include "internal/redact.h"

#include <cstdarg>

namespace varnkivo {
namespace {

constexpr int kHashCapacity = 1024;
constexpr const char* kDeviceConfig = "/etc/varninfo.conf";

Hash AllocateHash() { return Hash(VLIBCSzHashAlloc(kHashCapacity)); }

}  // namespace

void Operation::Stop(FailCode why, const char* format, ...) const {
  va_list arguments;
  va_start(arguments, format);
  LogLine(LOG_ERR, {source, why.line}, format, arguments);
  va_end(arguments);
  if (why.code != kKeepCode) VARNKIVOErrSet(why.code);
  throw Stopped{};
}

void Operation::StopFor(const KivoException& error, const char* format, int line) const {
  LogError({source, line}, format, Redact(error.what()).c_str());
  VARNKIVOErrSet(error.GetCode());
  throw Stopped{};
}

std::string Operation::SerialNumber(int line) const {
  char serial[36] = {};
  if (VLIBGetSerialNumber(serial, sizeof serial) < 0)
    Stop({KIVO_ERR_SERIAL, line}, "Failed to get serial number, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
         VLIBCErrorGetLine());
  return serial;
}

std::string Operation::MacAddress(int line) const {
  char mac[24] = {};
  if (VARNLuinfoCloudServiceGetMacAddress(mac, sizeof mac) < 0) Stop({KIVO_ERR_MAC, line}, "Failed to get mac address");
  return mac;
}

std::string Operation::ApiKey(int line) const {
  char key[VARN_CLOUD_API_KEY_SIZE] = {};
  if (VARNCloudServiceGetApiKey(key, 1) < 0) Stop({GetErrorCodeFromCloudService(), line}, "Failed to get apikey");
  return key;
}

ServerConfig Operation::ReadServerConfig(int line) const {
  ServerConfig config = {};
  if (VARNKIVOServerConfigGet(reinterpret_cast<char*>(&config)) < 0)
    Stop({KIVO_ERR_SERVER_CONFIG, line}, "VARNKIVOServerConfigGet, code=%u",
         static_cast<unsigned int>(VARNKIVOErrGet()));
  return config;
}

std::string Operation::TimeZoneName(int line) const {
  char zone[256] = {};
  int needed = 0;
  if (VARNZoneGet(zone, sizeof zone, &needed) < 0)
    Stop({kKeepCode, line}, "failed to get time zone, size need: %d, err=[0x%04X %s:%d]", needed, VLIBCErrGet(),
         VLIBCErrorGetFile(), VLIBCErrorGetLine());
  const Hash facts = AllocateHash();
  if (!facts)
    Stop({KIVO_ERR_SYSTEM, line}, "Failed to alloc pTZInfo, err=[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
         VLIBCErrorGetLine());
  if (VARNZoneGetInfo(zone, facts.get()) < 1)
    Stop({KIVO_ERR_SYSTEM, line}, "failed to get timezone info[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
         VLIBCErrorGetLine());
  const char* name = VLIBCSzHashGetValue(facts.get(), "nameInTZDB");
  if (!name)
    Stop({KIVO_ERR_SYSTEM, line}, "failed to get tmz[0x%04X %s:%d]", VLIBCErrGet(), VLIBCErrorGetFile(),
         VLIBCErrorGetLine());
  return name;
}

std::string SystemLanguage() {
  char language[32] = {};
  return VLIBCFileGetKeyValue(kDeviceConfig, "language", language, sizeof language) < 1 ? "enu" : language;
}

bool IsReportDisabled() { return VLIBCFileCheckKeyValue(kDeviceConfig, "kivo_disable_report", "yes") == 1; }

Request::Request(const Operation& operation, const char* host, const char* path, int line)
    : operation_(operation), host_(host), path_(path), parameters_(AllocateHash()) {
  if (!parameters_)
    operation.Stop({KIVO_ERR_SYSTEM, line}, "Failed to alloc https request, err=[0x%04X %s:%d]", VLIBCErrGet(),
                   VLIBCErrorGetFile(), VLIBCErrorGetLine());
}

Request::~Request() { VARNKIVOHttpsResponseFree(&response_); }

Request& Request::Set(const char* name, const char* value, int line) {
  if (VLIBCSzHashSetValue(parameters_.get(), name, value) < 0)
    operation_.Stop({KIVO_ERR_SYSTEM, line}, "Failed to alloc https request, err=[0x%04X %s:%d]", VLIBCErrGet(),
                    VLIBCErrorGetFile(), VLIBCErrorGetLine());
  return *this;
}

Request& Request::Quick(bool quick) {
  quick_ = quick;
  return *this;
}

const char* Request::Send(const char* failure, int line) {
  VARNKIVOHttpsResponseFree(&response_);
  _tag_libkivo_varn_request_ request = {};
  request.host = host_;
  request.path = path_;
  request.params = parameters_.get();
  request.quick = quick_;
  if (VARNKIVOHttpsRequestSend(&request, &response_) < 0)
    operation_.Stop({KIVO_ERR_SEND, line}, failure, VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine());
  return response_.body;
}

PluginSession::PluginSession(const Operation& operation, const char* event, int line) {
  if (VLIBPluginSDKInit("kivo", event, &handle_) >= 0) return;
  LogError({operation.source, line}, "VLIBPluginSDKInit failed");
  VLIBPluginExit(handle_);
  throw Stopped{};
}

PluginSession::~PluginSession() { VLIBPluginExit(handle_); }

int PluginSession::Run(_tag_sdk_plugin_action_ action) { return VLIBPluginAction(action, handle_); }

}  // namespace varnkivo
