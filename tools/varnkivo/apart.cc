// Runs work in a child and waits for it and for a signal at once. Touches the signal mask while it waits.
// The child has a process group of its own: Ctrl-C reaches the tool alone, which ends whatever the child has started.
#include "apart.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/kivo_exception.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "interrupt.h"

namespace kivotool {
namespace {

constexpr char kDone[] = "done";
constexpr char kOther[] = "other ";  // an exception without a code; a code stands there else

[[noreturn]] void Work(const std::function<void()>& work, int out) {
  std::string outcome = kDone;
  try {
    work();
  } catch (const varnkivo::KivoException& error) {
    outcome = std::to_string(static_cast<int>(error.GetCode())) + " " + error.what();
  } catch (const std::exception& error) {
    outcome = std::string(kOther) + error.what();
  }
  outcome.resize(std::min<std::size_t>(outcome.size(), 4096));  // written at once, whatever the pipe holds
  _exit(write(out, outcome.data(), outcome.size()) < 0 ? 1 : 0);
}

/// What the child wrote until it ended; false where a signal came first.
bool Await(int in, int signals, std::string& outcome) {
  pollfd waiting[2] = {{in, POLLIN, 0}, {signals, POLLIN, 0}};
  char block[4096];
  for (ssize_t got = 1; got > 0;) {
    if (poll(waiting, 2, -1) < 0 && errno != EINTR) throw std::runtime_error(std::strerror(errno));
    if (waiting[1].revents != 0) return false;
    if (waiting[0].revents == 0) continue;
    got = read(in, block, sizeof block);
    if (got > 0) outcome.append(block, static_cast<std::size_t>(got));
  }
  return true;
}

void Throw(const std::string& outcome) {
  if (outcome == kDone) return;
  if (outcome.empty()) throw std::runtime_error("the work's process ended without a word");
  const std::string text = outcome.substr(outcome.find(' ') + 1);
  if (outcome.rfind(kOther, 0) == 0) throw std::runtime_error(text);
  throw varnkivo::KivoException(static_cast<KIVO_ERRCODE>(std::stoi(outcome)), text);
}

}  // namespace

void RunApart(const std::function<void()>& work, const std::function<void()>& undo) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error(std::strerror(errno));
  const InterruptsHeld held;
  const pid_t parent = getpid(), child = fork();
  if (child == 0) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) _exit(1);
    held.ReleaseInChild();
    Work(work, ends[1]);
  }
  const int error = errno;
  close(ends[1]);
  std::string outcome;
  if (child > 0) setpgid(child, child);  // whoever comes first
  const bool undisturbed = child > 0 && Await(ends[0], held.Descriptor(), outcome);
  close(ends[0]);
  if (child < 0) throw std::runtime_error(std::strerror(error));
  if (!undisturbed) kill(-child, SIGKILL);
  waitpid(child, nullptr, 0);
  if (!undisturbed) return undo();  // the tool ends with `held`
  Throw(outcome);
}

}  // namespace kivotool
