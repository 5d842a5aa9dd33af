// What the account-centre operations share: steps that give a value or end the operation with a log line and a code.
// An operation is one straight-line body inside RunOperation; the order of its steps stands there and nowhere else.
#ifndef VARNKIVO_INTERNAL_OPERATION_H_
#define VARNKIVO_INTERNAL_OPERATION_H_

#include "internal/guard.h"
#include "internal/platform_handles.h"
#include "kivo_exception.h"
#include "varnkivo.h"

#include <string.h>

#include <string>

namespace varnkivo {

constexpr int kKeepCode = -1;  // Stop leaves the slot as it is

/// The code an operation stops with, and the line of the log entry: that of the call.
struct FailCode {
  // NOLINTNEXTLINE(google-explicit-constructor): the conversion at the call is how the line becomes known
  FailCode(int value, int at = __builtin_LINE()) : code(value), line(at) {}
  int code, line;
};

struct Stopped {};  // said and coded where it happened

/// As VARNKIVOServerConfigGet fills it: two texts of 2048 bytes.
struct ServerConfig {
  char payment[2048];
  char account[2048];
};
static_assert(sizeof(ServerConfig) == 4096, "filled as one buffer of 4096 bytes");

/// A copy of the account record. It holds the auth key, so it is overwritten when it goes.
struct AccountCopy : _tag_kivo_INFO_ {
  AccountCopy() : _tag_kivo_INFO_{} {}
  explicit AccountCopy(const _tag_kivo_INFO_& account) : _tag_kivo_INFO_(account) {}
  AccountCopy(const AccountCopy&) = delete;
  AccountCopy& operator=(const AccountCopy&) = delete;
  ~AccountCopy() { explicit_bzero(static_cast<_tag_kivo_INFO_*>(this), sizeof(_tag_kivo_INFO_)); }
};

struct Operation {
  const char* source;  // the name in front of every log line

  /// Logs, sets the slot (kKeepCode leaves it), unwinds: in this order, while the platform's last error is fresh.
  [[noreturn]] void Stop(FailCode why, const char* format, ...) const __attribute__((format(printf, 3, 4)));
  /// Stops with the exception's code after logging `format`, whose one argument is the exception's text.
  [[noreturn]] void StopFor(const KivoException& error, const char* format, int line = __builtin_LINE()) const;

  std::string SerialNumber(int line = __builtin_LINE()) const;
  std::string MacAddress(int line = __builtin_LINE()) const;
  std::string ApiKey(int line = __builtin_LINE()) const;
  ServerConfig ReadServerConfig(int line = __builtin_LINE()) const;
  /// The host's time zone by its IANA name. An unreadable zone leaves the slot as it is.
  std::string TimeZoneName(int line = __builtin_LINE()) const;
};

/// "language" of the device's configuration, "enu" where there is none.
std::string SystemLanguage();
/// Whether the administrator has switched the periodic report off.
bool IsReportDisabled();

/// A request of an operation: its parameters, sent in the order they are first set, and the answer to the last sending.
class Request {
 public:
  Request(const Operation& operation, const char* host, const char* path, int line = __builtin_LINE());
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request();

  /// A name set before keeps its place and gets the new value.
  Request& Set(const char* name, const char* value, int line = __builtin_LINE());
  Request& Set(const char* name, const std::string& value, int line = __builtin_LINE()) {
    return Set(name, value.c_str(), line);
  }
  /// As "true" or "false".
  Request& SetBool(const char* name, bool value, int line = __builtin_LINE()) {
    return Set(name, value ? "true" : "false", line);
  }
  Request& Quick(bool quick);
  /// POSTs and returns the body, which lives until the next Send. `failure` takes the platform's last error.
  const char* Send(const char* failure = "Failed to send https request. err=[0x%04X %s:%d]",
                   int line = __builtin_LINE());

 private:
  const Operation& operation_;
  const char* host_;
  const char* path_;
  bool quick_ = false;
  Hash parameters_;
  _tag_libkivo_varn_response_ response_ = {};
};

/// The plug-ins registered for `event`, from before it to the end of the operation.
class PluginSession {
 public:
  PluginSession(const Operation& operation, const char* event, int line = __builtin_LINE());
  PluginSession(const PluginSession&) = delete;
  PluginSession& operator=(const PluginSession&) = delete;
  ~PluginSession();

  /// Negative when a plug-in failed.
  int Run(_tag_sdk_plugin_action_ action);

 private:
  VLIBPlugin* handle_ = nullptr;
};

template <class Body>
int RunOperation(Site site, Body body) noexcept {
  Operation operation{site.source};
  try {
    return body(operation);
  } catch (const Stopped&) {
    return -1;
  } catch (...) {
    return Unexpected(site);
  }
}

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_OPERATION_H_
