// fork, run-and-wait, and a pipe to a program. A pipe's process id is kept beside its stream until it is closed.
#include <unistd.h>

#include <map>
#include <mutex>
#include <string_view>

#include "child_process.h"
#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

constexpr int kRaiseIds = 1;

/// Open pipes, under ForkTurn, so that a forked child finds them whole.
std::map<FILE*, pid_t>& OpenPipes() {
  static auto* const pipes = new std::map<FILE*, pid_t>;  // never destroyed: pipes may be closed at exit
  return *pipes;
}

int Execute(const char* program, int flags, std::vector<std::string> arguments) {
  Child child;
  child.program = program;
  child.arguments = std::move(arguments);
  child.raiseIds = (flags & kRaiseIds) != 0;
  const pid_t pid = StartChild(child);
  return pid < 0 ? -1 : WaitForExit(pid);
}

FILE* OpenPipe(const char* program, bool reading, std::vector<std::string> arguments) {
  int ends[2];
  if (!MakePipe(ends)) return nullptr;
  UniqueFd ours(ends[reading ? 0 : 1]);
  const UniqueFd theirs(ends[reading ? 1 : 0]);
  Child child;
  child.program = program;
  child.arguments = std::move(arguments);
  child.descriptors[reading ? 1 : 0] = theirs.Get();
  FILE* stream = fdopen(ours.Get(), reading ? "r" : "w");
  if (!stream) {
    Fail(VLIB_ERR_NO_MEMORY);
    return nullptr;
  }
  ours.Release();  // the stream's now
  const pid_t pid = StartChild(child);
  if (pid < 0) {
    fclose(stream);
    return nullptr;
  }
  const ForkTurn turn;
  OpenPipes()[stream] = pid;
  return stream;
}

pid_t ForgetPipe(FILE* stream) {
  const ForkTurn turn;
  const auto found = OpenPipes().find(stream);
  if (found == OpenPipes().end()) return -1;
  const pid_t pid = found->second;
  OpenPipes().erase(found);
  return pid;
}

}  // namespace
}  // namespace varnplatform

using namespace varnplatform;

pid_t VLIBCProcFork(void) {
  const pid_t pid = fork();
  return pid < 0 ? FailErrno(VLIB_ERR_FORK) : pid;
}

int VLIBCExecl(const char* program, int flags, const char* arg, ...) {
  if (!program) return Fail(VLIB_ERR_BAD_PARAMETER);
  va_list rest;
  va_start(rest, arg);
  const int result = Guarded([&] { return Execute(program, flags, ArgumentTexts(arg, rest)); });
  va_end(rest);
  return result;
}

FILE* VLIBCPopen(const char* program, const char* mode, const char* arg, ...) {
  const std::string_view wanted = mode ? mode : "";
  if (!program || (wanted != "r" && wanted != "w")) {
    Fail(VLIB_ERR_BAD_PARAMETER);
    return nullptr;
  }
  FILE* stream = nullptr;
  va_list rest;
  va_start(rest, arg);
  Guarded([&] {
    stream = OpenPipe(program, wanted == "r", ArgumentTexts(arg, rest));
    return stream ? 0 : -1;
  });
  va_end(rest);
  return stream;
}

int VLIBCPclose(FILE* pipe) {
  if (!pipe) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    const pid_t pid = ForgetPipe(pipe);
    if (pid < 0) return Fail(VLIB_ERR_BAD_PARAMETER);  // not one of ours: stays open
    fclose(pipe);                                      // first, so that a program that reads sees the end
    return WaitForExit(pid);
  });
}
