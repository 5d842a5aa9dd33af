// A new device and a cloud with one account for every test; the real tool as a
// process; and a checker for the part of JSON Schema that the shipped schemas
// use.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "sim/simulator.h"

namespace tooltest {

constexpr char kEmail[] = "ann@example.com";
constexpr char kPassword[] = "correct horse battery";
constexpr char kUserId[] = "1001";
constexpr char kSerial[] = "2040VKN000001";  // the sandbox's device
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";
constexpr char kJob[] = "/etc/cron.d/kivo";
constexpr char kLoginPath[] = "device/api/password_login";
constexpr char kQueryPath[] = "device/api/user/query";

struct Call {
  std::vector<std::string> arguments;
  std::string input = {};                     ///< standard input; with a terminal: typed there
  std::vector<std::string> environment = {};  ///< "NAME=value", added to a small fixed one
  bool terminal = false;                      ///< stdin and stderr are a terminal
  uid_t realUid = 0, effectiveUid = 0;
  std::string outputFile = {};  ///< stdout goes there instead
  std::string typeAfter = {};   ///< `input` is typed once the terminal has shown this
  unsigned short columns = 0;   ///< of the terminal; 0: it does not say
};

struct Result {
  int exit = -1;         ///< 128 + signal where a signal ended it
  std::string out, err;  ///< with a terminal `err` is what that showed
};

class ToolProcess {
 public:
  explicit ToolProcess(const Call& call);
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;
  ~ToolProcess();

  pid_t Pid() const { return pid_; }
  void Signal(int signal) const;
  void TypeMore(const std::string& text) const;  ///< at the terminal
  const std::string& Shown() const { return result_.err; }
  /// Reads until the tool ends; ends it after 60 seconds.
  Result Wait();
  /// Reads until stderr, or the terminal, has shown `text`; false when it ended
  /// without.
  bool WaitFor(const std::string& text);
  bool EchoIsOn() const;  ///< of the terminal

 private:
  void Type();
  bool ReadSome();

  Call call_;
  pid_t pid_ = -1;
  int out_ = -1, err_ = -1, terminal_ = -1;
  int slave_ = -1;  ///< kept open, so that the terminal's state outlives the tool
  bool typed_ = false;
  Result result_;
};

Result RunTool(const Call& call);

/// Empty when `text` is one JSON document that the schema `name` ("status")
/// allows; else what is wrong, with its place. A keyword that the checker does
/// not know is wrong too: no part of a schema goes unchecked.
std::string CheckDocument(const std::string& name, const std::string& text);

/// The one JSON document in `text`; null and a test failure when there is none.
Json::Value Parse(const std::string& text);

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
  /// Names, modes, owners, times and contents of everything the tool could
  /// change.
  static std::string Snapshot();
};

/// An error as it stands on stderr in JSON mode, checked against its schema.
Json::Value ErrorOf(const Result& result);

}  // namespace tooltest
