// Starts the tool by fork and exec. The test program has threads (the simulator's), so the child only makes calls that
// are safe then; argument and environment arrays are made before.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "tool_fixture.h"

namespace tooltest {
namespace {

constexpr int kPatience = 60000;  // milliseconds without a byte

std::vector<char*> Pointers(Words& texts) {
  std::vector<char*> out;
  for (std::string& text : texts) out.push_back(text.data());
  out.push_back(nullptr);
  return out;
}

void WriteAll(int file, const std::string& text) {
  EXPECT_EQ(static_cast<ssize_t>(text.size()), write(file, text.data(), text.size())) << "the tool does not listen";
}

}  // namespace

ToolProcess::ToolProcess(const Call& call) {
  Words arguments = With({"varnkivo"}, call.arguments);  // of two variables with one name the first counts
  Words environment = With(call.environment, {"PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root"});
  for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"})
    if (const char* value = getenv(name)) environment.push_back(std::string(name) + "=" + value);
  const std::vector<char*> argv = Pointers(arguments), envp = Pointers(environment);
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) + pipe2(out, O_CLOEXEC) + pipe2(err, O_CLOEXEC) != 0) abort();
  if (call.terminal && openpty(&terminal_, &slave_, nullptr, nullptr, nullptr) != 0) abort();
  for (const int end : {terminal_, slave_}) fcntl(end, F_SETFD, FD_CLOEXEC);
  pid_ = fork();
  if (pid_ == 0) {
    setsid();
    for (const int one : {SIGHUP, SIGINT}) signal(one, SIG_DFL);  // the tool respects what is ignored already
    if (call.terminal) ioctl(slave_, TIOCSCTTY, 0);
    dup2(call.terminal ? slave_ : in[0], 0);
    dup2(out[1], 1);
    dup2(call.terminal ? slave_ : err[1], 2);
    if (setresgid(call.realUid, call.effectiveUid, call.effectiveUid) != 0) _exit(99);
    if (setresuid(call.realUid, call.effectiveUid, call.effectiveUid) != 0) _exit(99);
    execve(VARNKIVO_TOOL_PATH, argv.data(), envp.data());
    _exit(98);
  }
  close(out[1]), close(err[1]);
  if (!call.terminal) WriteAll(in[1], call.input);
  close(in[0]), close(in[1]);
  out_ = out[0], err_ = err[0];
}

ToolProcess::~ToolProcess() {
  if (pid_ > 0) kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0);
  for (const int descriptor : {out_, err_, terminal_, slave_})
    if (descriptor >= 0) close(descriptor);
}

void ToolProcess::Signal(int signal) const { kill(pid_, signal); }
void ToolProcess::Type(const std::string& text) const { WriteAll(terminal_, text); }

/// One poll: false when stdout and stderr have ended.
bool ToolProcess::ReadSome() {
  pollfd waiting[3] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}, {terminal_, POLLIN, 0}};
  if (poll(waiting, 3, kPatience) <= 0) {
    ADD_FAILURE() << "the tool hangs";
    kill(pid_, SIGKILL);
    return false;
  }
  for (const pollfd& place : waiting) {
    if (place.fd < 0 || place.revents == 0) continue;
    char buffer[4096];
    const ssize_t got = read(place.fd, buffer, sizeof buffer);
    if (got > 0) (place.fd == out_ ? result_.out : result_.err).append(buffer, static_cast<std::size_t>(got));
    if (got > 0 || place.fd == terminal_) continue;
    close(place.fd);
    (place.fd == out_ ? out_ : err_) = -1;
  }
  return out_ >= 0 || err_ >= 0;
}

bool ToolProcess::WaitFor(const std::string& text) {
  while (result_.err.find(text) == std::string::npos)
    if (!ReadSome()) return false;
  return true;
}

Result ToolProcess::Wait() {
  while (ReadSome()) {
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  for (pollfd left = {terminal_, POLLIN, 0}; terminal_ >= 0 && poll(&left, 1, 0) > 0;)
    ReadSome();  // what it still shows
  result_.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return result_;
}

bool ToolProcess::EchoIsOn() const {
  termios state{};
  return tcgetattr(slave_, &state) == 0 && (state.c_lflag & ECHO) != 0;
}

Result AtPrompts(const Words& arguments, const std::vector<std::pair<std::string, std::string>>& answers,
                 const Words& environment) {
  ToolProcess tool({arguments, "", environment, true});
  for (const auto& [prompt, answer] : answers) {
    EXPECT_TRUE(tool.WaitFor(prompt)) << tool.Shown();
    tool.Type(answer + "\n");
  }
  return tool.Wait();
}

}  // namespace tooltest
