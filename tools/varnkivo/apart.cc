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
#include <chrono>
#include <climits>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

#include "interrupt.h"

namespace kivotool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kNever = Clock::time_point::max();
constexpr char kDone[] = "done ";    // the text follows
constexpr char kOther[] = "other ";  // an exception without a code; a code stands there else

void WriteAll(int out, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t more = write(out, text.data() + done, text.size() - done);
    if (more < 0) _exit(1);
    done += static_cast<std::size_t>(more);
  }
}

[[noreturn]] void Work(const std::function<std::string()>& work, int out) {
  std::string outcome;
  try {
    outcome = kDone + work();
  } catch (const varnkivo::KivoException& error) {
    outcome = std::to_string(static_cast<int>(error.GetCode())) + " " + error.what();
  } catch (const std::exception& error) {
    outcome = std::string(kOther) + error.what();
  }
  WriteAll(out, outcome);
  _exit(0);
}

enum class End { kByItself, kSignal, kLimit };

int MillisecondsUntil(Clock::time_point limit) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(limit - Clock::now()).count();
  return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

/// Collects what the child writes until it ends, or something else comes first.
End Await(int in, int signals, Clock::time_point limit, std::string& outcome) {
  pollfd waiting[2] = {{in, POLLIN, 0}, {signals, POLLIN, 0}};
  char block[4096];
  for (ssize_t got = 1; got > 0;) {
    const int ready = poll(waiting, 2, limit == kNever ? -1 : MillisecondsUntil(limit));
    if (ready < 0 && errno != EINTR) throw std::runtime_error(std::strerror(errno));
    if (ready == 0) return End::kLimit;
    if (waiting[1].revents != 0) return End::kSignal;
    if (waiting[0].revents == 0) continue;
    got = read(in, block, sizeof block);
    if (got > 0) outcome.append(block, static_cast<std::size_t>(got));
  }
  return End::kByItself;
}

std::string TextOf(const std::string& outcome) {
  if (outcome.rfind(kDone, 0) == 0) return outcome.substr(std::strlen(kDone));
  if (outcome.empty()) throw std::runtime_error("the work's process ended without a word");
  const std::string text = outcome.substr(outcome.find(' ') + 1);
  if (outcome.rfind(kOther, 0) == 0) throw std::runtime_error(text);
  throw varnkivo::KivoException(static_cast<KIVO_ERRCODE>(std::stoi(outcome)), text);
}

}  // namespace

std::string RunApart(const std::function<std::string()>& work, const std::function<void()>& undo, int limitSeconds) {
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
  End end = End::kByItself;
  if (child > 0) setpgid(child, child);  // whoever comes first
  const auto limit = limitSeconds > 0 ? Clock::now() + std::chrono::seconds(limitSeconds) : kNever;
  if (child > 0) end = Await(ends[0], held.Descriptor(), limit, outcome);
  close(ends[0]);
  if (child < 0) throw std::runtime_error(std::strerror(error));
  if (end != End::kByItself) kill(-child, SIGKILL);
  waitpid(child, nullptr, 0);
  if (end == End::kLimit) throw TakesTooLong();
  if (end == End::kSignal) undo();  // the tool ends with `held`
  return end == End::kByItself ? TextOf(outcome) : "";
}

}  // namespace kivotool
