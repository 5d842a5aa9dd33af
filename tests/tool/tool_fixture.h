// A new device and a cloud with one account, for every test.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "json_schema.h"
#include "sim/simulator.h"
#include "tool_process.h"

namespace tooltest {

constexpr char kEmail[] = "ann@example.com";
constexpr char kPassword[] = "correct horse battery";
constexpr char kUserId[] = "1001";
constexpr char kSerial[] = "2040VKN000001";  // the sandbox's device
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";
constexpr char kJob[] = "/etc/cron.d/kivo";
constexpr char kLoginPath[] = "device/api/password_login";
constexpr char kQueryPath[] = "device/api/user/query";

class ToolTest : public testing::Test {
 protected:
  ToolTest();

  static kivosim::Simulator& Cloud();  ///< started once: its CA is in the bundle from then on
  static Result Tool(const std::vector<std::string>& arguments) { return RunTool({arguments}); }
  static Result LogIn(const std::vector<std::string>& more = {}, const std::string& password = kPassword);
  /// Signs in and makes the profile old enough to be asked for again.
  static void SignInLongAgo();
  static std::string AuthKey();

  static std::string Read(const std::string& path);
  static void Write(const std::string& path, const std::string& content, mode_t mode = 0644);
  /// Names, modes, owners, times and contents of everything the tool could change.
  static std::string Snapshot();
};

/// An error as it stands on stderr in JSON mode, checked against its schema.
Json::Value ErrorOf(const Result& result);

}  // namespace tooltest
