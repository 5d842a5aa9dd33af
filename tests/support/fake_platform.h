// The device as a test sees it: platform calls are recorded and can be made to fail, and so are those to syslog, curl
// and usleep that the library makes. What is not told to fail is real. The fakes stand in front because a test program
// exports its symbols. Waiting costs no time: usleep returns at once and puts the library's clocks forward by as much.
//
//   FakePlatform device;                      // before anything that uses the platform; a new device
//   device.FailNext("VLIBGetSerialNumber");   // its last error is then 0x0700, fake.c:1
//   EXPECT_EQ("Failed to get serial number, err=[0x0700 fake.c:1]", device.LastLog());
#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "process.h"

namespace testsupport {

constexpr char kPrivateFolder[] = "/usr/varn/etc/varnholt-account/private";
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";
constexpr char kDeviceConf[] = "/etc/varninfo.conf";
constexpr char kDefaultsConf[] = "/etc.defaults/varninfo.conf";
constexpr char kCronJob[] = "/etc/cron.d/kivo";

struct LogLine {
  int priority = 0;
  std::string source;
  std::string text;  // without "SOURCE:LINE "
  int line = 0;
};

/// One at a time. Making one puts the device's files, the slot and the fakes into their first state.
class FakePlatform {
 public:
  FakePlatform();
  FakePlatform(const FakePlatform&) = delete;
  FakePlatform& operator=(const FakePlatform&) = delete;
  /// Fails the test when a failure asked for was never reached, or a secret stands in the log.
  ~FakePlatform();

  /// The next `times` calls of `call` give `result` (null and -1 where none is said) instead of running. Calls: the
  /// functions of platform_calls.cc; "ConfigManager::Save" and "ConfigManager::Remove" (0 is false); "curl_easy_init",
  /// "curl_easy_perform", "curl_easy_escape", or one option such as "CURLOPT_URL". Results of one call queue up.
  void FailNext(const std::string& call, int times = 1, std::optional<long> result = std::nullopt);
  /// As FailNext, but `before` calls run first.
  void FailAfter(const std::string& call, int before, std::optional<long> result = std::nullopt);

  /// Calls so far as "NAME(ARGUMENT,ARGUMENT)", in order, that begin with `start`; buffers and handles stand as "*".
  std::vector<std::string> Calls(const std::string& start = "") const;
  void ForgetCalls();

  /// The library's lines of this test, oldest first.
  std::vector<LogLine> Lines() const;
  std::vector<std::string> Logs() const;  ///< their texts
  LogLine Last() const;                   ///< an empty one when there is none
  std::string LastLog() const { return Last().text; }
  std::string LastLine() const { return Lines().empty() ? "" : Last().source + " " + Last().text; }
  bool HasLog(const std::string& part) const;
  /// Fails the test at its end when `secret` stands in any line of the log.
  void MustNotLog(const std::string& secret);

  /// What time() gives the library: frozen from now on.
  void SetTime(std::time_t now);
  /// Divides the seconds that a legacy request may take.
  void ShortenTimeOuts(long divisor);
};

}  // namespace testsupport
