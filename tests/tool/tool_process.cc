// Starts the tool by fork and exec. The test program has threads (the
// simulator's), so the child only makes calls that are safe then; argument and
// environment arrays are made before.
#include "tool_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>

namespace tooltest {
namespace {

constexpr int kPatience = 60000;  // milliseconds without a byte

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> out;
  for (std::string& text : texts) out.push_back(text.data());
  out.push_back(nullptr);
  return out;
}

}  // namespace

ToolProcess::ToolProcess(const Call& call) : call_(call) {
  std::vector<std::string> arguments = {"varnkivo"};
  arguments.insert(arguments.end(), call.arguments.begin(), call.arguments.end());
  std::vector<std::string> environment = call.environment;  // of two with one name the first counts
  environment.insert(environment.end(), {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root"});
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* value = getenv(name)) environment.push_back(std::string(name) + "=" + value);
  }
  const std::vector<char*> argv = Pointers(arguments), envp = Pointers(environment);
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) + pipe2(out, O_CLOEXEC) + pipe2(err, O_CLOEXEC) != 0) abort();
  if (call.terminal) {
    terminal_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (terminal_ < 0 || grantpt(terminal_) != 0 || unlockpt(terminal_) != 0) abort();
    slave_ = open(ptsname(terminal_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const winsize size = {24, call.columns, 0, 0};
    ioctl(slave_, TIOCSWINSZ, &size);
  }
  const int file = call.outputFile.empty() ? -1 : open(call.outputFile.c_str(), O_WRONLY | O_CLOEXEC);
  pid_ = fork();
  if (pid_ == 0) {
    setsid();
    if (call.terminal) ioctl(slave_, TIOCSCTTY, 0);
    dup2(call.terminal ? slave_ : in[0], 0);
    dup2(file >= 0 ? file : out[1], 1);
    dup2(call.terminal ? slave_ : err[1], 2);
    if (setresgid(call.realUid, call.effectiveUid, call.effectiveUid) != 0) _exit(99);
    if (setresuid(call.realUid, call.effectiveUid, call.effectiveUid) != 0) _exit(99);
    execve(VARNKIVO_TOOL_PATH, argv.data(), envp.data());
    _exit(98);
  }
  close(in[0]), close(out[1]), close(err[1]);
  if (file >= 0) close(file);
  if (!call.terminal && !call.input.empty() && write(in[1], call.input.data(), call.input.size()) < 0) {
    ADD_FAILURE() << "the tool's standard input is closed";
  }
  close(in[1]);
  out_ = out[0], err_ = err[0];
  if (call.typeAfter.empty()) Type();
}

ToolProcess::~ToolProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (const int descriptor : {out_, err_, terminal_, slave_}) {
    if (descriptor >= 0) close(descriptor);
  }
}

void ToolProcess::Type() {
  if (!call_.terminal || typed_ || call_.input.empty()) return;
  typed_ = true;
  if (write(terminal_, call_.input.data(), call_.input.size()) < 0) ADD_FAILURE() << "cannot type";
}

void ToolProcess::Signal(int signal) const { kill(pid_, signal); }

void ToolProcess::TypeMore(const std::string& text) const {
  if (write(terminal_, text.data(), text.size()) < 0) ADD_FAILURE() << "cannot type";
}

/// One poll: false when stdout and stderr have ended.
bool ToolProcess::ReadSome() {
  pollfd waiting[3] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}, {terminal_, POLLIN, 0}};
  const int ready = poll(waiting, 3, kPatience);
  if (ready <= 0) {
    ADD_FAILURE() << "the tool hangs";
    return false;
  }
  char buffer[4096];
  for (const pollfd& place : waiting) {
    if (place.fd < 0 || place.revents == 0) continue;
    const ssize_t got = read(place.fd, buffer, sizeof buffer);
    if (got > 0) (place.fd == out_ ? result_.out : result_.err).append(buffer, static_cast<std::size_t>(got));
    if (got <= 0 && place.fd == out_)
      close(out_), out_ = -1;
    else if (got <= 0 && place.fd == err_)
      close(err_), err_ = -1;
  }
  if (!call_.typeAfter.empty() && result_.err.find(call_.typeAfter) != std::string::npos) Type();
  return out_ >= 0 || err_ >= 0;
}

bool ToolProcess::WaitFor(const std::string& text) {
  while (result_.err.find(text) == std::string::npos) {
    if (!ReadSome()) return false;
  }
  return true;
}

Result ToolProcess::Wait() {
  while (ReadSome()) {
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  for (pollfd left = {terminal_, POLLIN, 0}; terminal_ >= 0 && poll(&left, 1, 0) > 0;) {  // what it still shows
    char buffer[4096];
    const ssize_t got = read(terminal_, buffer, sizeof buffer);
    if (got <= 0) break;
    result_.err.append(buffer, static_cast<std::size_t>(got));
  }
  result_.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result_;
}

bool ToolProcess::EchoIsOn() const {
  termios state{};
  return tcgetattr(slave_, &state) == 0 && (state.c_lflag & ECHO) != 0;
}

Result RunTool(const Call& call) { return ToolProcess(call).Wait(); }

}  // namespace tooltest
