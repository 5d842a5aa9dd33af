// A new device and a cloud with one account for every test; the real tool as a process; and a checker for the part of
// JSON Schema that the shipped schemas use.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

#include "sim/simulator.h"

namespace tooltest {

using Words = std::vector<std::string>;

constexpr char kEmail[] = "ann@example.com", kPassword[] = "correct horse battery", kUserId[] = "1001";
constexpr char kSerial[] = "2040VKN000001";  // the sandbox's device
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";
constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kJob[] = "/etc/cron.d/kivo";
constexpr char kLoginPath[] = "device/api/password_login", kQueryPath[] = "device/api/user/query";
constexpr char kTokenPath[] = "oauth2/token";

struct Call {
  Words arguments;
  std::string input = {};  ///< standard input, where that is no terminal
  Words environment = {};  ///< "NAME=value", added to a small fixed one
  bool terminal = false;   ///< stdin and stderr are a terminal
  uid_t realUid = 0, effectiveUid = 0;
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
  void Type(const std::string& text) const;  ///< at the terminal
  const std::string& Shown() const { return result_.err; }
  Result Wait();                          ///< reads until the tool ends
  bool WaitFor(const std::string& text);  ///< reads until it is shown; false when the tool ended without
  bool EchoIsOn() const;                  ///< of the terminal

 private:
  bool ReadSome();

  pid_t pid_ = -1;
  int out_ = -1, err_ = -1, terminal_ = -1;
  int slave_ = -1;  ///< kept open, so that the terminal's state outlives the tool
  Result result_;
};

inline Result RunTool(const Call& call) { return ToolProcess(call).Wait(); }
/// On a terminal: each answer is typed once its prompt is shown.
Result AtPrompts(const Words& arguments, const std::vector<std::pair<std::string, std::string>>& answers,
                 const Words& environment = {"TERM=dumb"});

/// Empty when `text` is one JSON document that the schema `name` ("status") allows; else what is wrong, with its place.
/// A keyword that the checker does not know is wrong too: no part of a schema goes unchecked.
std::string CheckDocument(const std::string& name, const std::string& text);
/// The one JSON document in `text`; null and a test failure when there is none.
Json::Value Parse(const std::string& text);
/// An error as it stands on stderr in JSON mode, checked against its schema.
Json::Value ErrorOf(const Result& result);
/// `words` and more.
Words With(Words words, const Words& more);

class ToolTest : public testing::Test {
 protected:
  ToolTest();

  static kivosim::Simulator& Cloud();  ///< started once: its CA is in the bundle from then on
  static Result Tool(const Words& arguments) { return RunTool({arguments}); }
  static Result AsOrdinaryUser(const Words& arguments) { return RunTool({arguments, "", {}, false, 1000, 1000}); }
  static Result LogIn(const Words& more = {}, const std::string& password = kPassword);
  /// Signs in and makes the profile old enough to be asked for again.
  static void SignInLongAgo();
  /// The device's own, that old.
  static kivosim::TokenSet StoreToken(std::chrono::seconds age = std::chrono::seconds(60));
  static std::string AuthKey();

  static std::string Read(const std::string& path);
  static void Write(const std::string& path, const std::string& content, mode_t mode = 0644);
  /// Names, modes, owners, times and sizes of everything the tool could change.
  static std::string Snapshot();
};

}  // namespace tooltest
