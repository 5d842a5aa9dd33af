// Runs the real tool as a process and collects what it prints.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace tooltest {

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
  /// Reads until stderr, or the terminal, has shown `text`; false when it ended without.
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

}  // namespace tooltest
