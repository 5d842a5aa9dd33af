// What the fakes in front of the platform, libc and libcurl share: queued results, the record of calls, the clocks.
// Only the library's own calls count: those of test code, simulator and platform to libc or libcurl go straight
// through.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "fake_platform.h"

namespace testsupport {

struct FakeTest {
  std::map<std::string, std::deque<std::optional<long>>> results;  // nothing: the call runs
  std::vector<std::string> calls, secrets;
  std::vector<LogLine> lines;
  std::optional<std::time_t> time;
  long divisor = 1;
};
struct FakeState : FakeTest {
  std::mutex mutex;
  long long skippedMicroseconds = 0;  // only grows: the library's steady clock must not go back
};

FakeState& State();
template <class Use>
auto Locked(Use use) {
  const std::lock_guard<std::mutex> guard(State().mutex);
  return use(State());
}
/// Set by a failure that was asked for, cleared by a real one: whose error VLIBCErrGet tells.
extern thread_local bool gFakeError;
/// Whether a return address lies in libvarnkivo.
bool InLibrary(const void* address);

/// Records the call and takes its next queued result.
struct Planned {
  bool instead = false;             // the call does not run
  std::optional<long> result = {};  // of a call that does not run, where one was given
};
Planned Plan(const std::string& name, const std::string& arguments);
constexpr long kDefaultResult = INT64_MIN;

template <class Function>
Function* Next(const char* name) {
  void* const found = dlsym(RTLD_NEXT, name);
  if (!found) abort();  // the library that the program was linked with has no such function
  return reinterpret_cast<Function*>(found);
}

/// Buffers (char*) are not read: they may hold nothing yet.
inline std::string Word(const char* text) { return text ? text : "(null)"; }
template <class T>
std::string Word(T value) {
  if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) return std::to_string(static_cast<long long>(value));
  return "*";
}
template <class... T>
std::string Words(T... values) {
  std::string out;
  ((out += (out.empty() ? "" : ",") + Word(values)), ...);
  return out;
}

}  // namespace testsupport
