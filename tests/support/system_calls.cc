// Stands in front of libc and libcurl where the library calls them: keeps log lines, skips waits, records options.
// No <syslog.h> here: with fortified headers it defines these functions itself.
#include <curl/curl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>

#include "fake_state.h"

using namespace testsupport;

#define CALLED_BY_LIBRARY InLibrary(__builtin_return_address(0))

namespace {

void Log(int priority, const char* format, va_list arguments, const void* caller) {
  char text[16384];
  vsnprintf(text, sizeof text, format, arguments);
  if (!InLibrary(caller)) return Next<void(int, const char*, ...)>("syslog")(priority, "%s", text);
  const std::string all = text;
  const std::size_t space = all.find(' '), colon = all.rfind(':', space);
  LogLine line{priority, "", all};
  if (space != std::string::npos && colon != std::string::npos && colon + 1 < space &&
      all.find_first_not_of("0123456789", colon + 1) == space)
    line = {priority, all.substr(0, colon), all.substr(space + 1), std::stoi(all.substr(colon + 1))};
  else
    ADD_FAILURE() << "a log line without \"SOURCE:LINE \" in front: " << all;
  Locked([&](FakeState& state) { state.lines.push_back(line); });
}

std::chrono::microseconds Skipped(const void* caller) {
  return std::chrono::microseconds(
      InLibrary(caller) ? Locked([](FakeState& state) { return state.skippedMicroseconds; }) : 0);
}

}  // namespace

#define FAKE_CALL(result, name, failure, parameters, arguments, ...)                      \
  result name parameters __VA_ARGS__ {                                                    \
    static auto* const next = Next<result parameters>(#name);                             \
    const Planned planned = CALLED_BY_LIBRARY ? Plan(#name, Words arguments) : Planned(); \
    return planned.instead ? (failure) : next arguments;                                  \
  }
#define FAKE_SYSTEM(name, parameters, arguments) \
  FAKE_CALL(int, name, (errno = EPERM, -1), parameters, arguments, noexcept)

#define FAKE_LOG(name, parameters)                                 \
  void name parameters {                                           \
    va_list arguments;                                             \
    va_start(arguments, format);                                   \
    Log(priority, format, arguments, __builtin_return_address(0)); \
    va_end(arguments);                                             \
  }

extern "C" {

FAKE_LOG(syslog, (int priority, const char* format, ...))
FAKE_LOG(__syslog_chk, (int priority, int, const char* format, ...))

int usleep(useconds_t microseconds) {
  if (!CALLED_BY_LIBRARY) return Next<int(useconds_t)>("usleep")(microseconds);
  Plan("usleep", Words(microseconds));
  Locked([&](FakeState& state) { state.skippedMicroseconds += microseconds; });
  return 0;
}

time_t time(time_t* out) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const auto skipped = std::chrono::duration_cast<std::chrono::seconds>(Skipped(__builtin_return_address(0)));
  time_t seconds = now.tv_sec + skipped.count();
  if (CALLED_BY_LIBRARY && State().time) seconds = *State().time;
  if (out) *out = seconds;
  return seconds;
}

FAKE_SYSTEM(setresuid, (uid_t real, uid_t effective, uid_t saved), (real, effective, saved))
FAKE_SYSTEM(setresgid, (gid_t real, gid_t effective, gid_t saved), (real, effective, saved))

FAKE_CALL(CURL*, curl_easy_init, nullptr, (void), ())
FAKE_CALL(CURLcode, curl_easy_perform, static_cast<CURLcode>(planned.result.value_or(CURLE_SEND_ERROR)), (CURL * curl),
          (curl))
FAKE_CALL(char*, curl_easy_escape, nullptr, (CURL * curl, const char* text, int length), (curl, text, length))

CURLcode curl_easy_setopt(CURL* curl, CURLoption option, ...) {
  static auto* const next = Next<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
  const int kind = static_cast<int>(option) / 10000 * 10000;
  const bool number = kind == CURLOPTTYPE_LONG, offset = kind == CURLOPTTYPE_OFF_T;
  va_list arguments;
  va_start(arguments, option);
  const curl_off_t value = number ? va_arg(arguments, long) : offset ? va_arg(arguments, curl_off_t) : 0;
  void* const pointer = number || offset ? nullptr : va_arg(arguments, void*);
  va_end(arguments);
  if (CALLED_BY_LIBRARY) {
    const curl_easyoption* const known = curl_easy_option_by_id(option);
    const std::string word = number || offset               ? Words(value)
                             : known->type == CURLOT_STRING ? Word(static_cast<const char*>(pointer))
                                                            : Word(static_cast<const void*>(pointer));
    const Planned planned = Plan(std::string("CURLOPT_") + known->name, word);
    if (planned.instead) return static_cast<CURLcode>(planned.result.value_or(CURLE_UNKNOWN_OPTION));
    if (option == CURLOPT_TIMEOUT)
      return next(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(value) * 1000 / State().divisor);
  }
  if (number) return next(curl, option, static_cast<long>(value));
  return offset ? next(curl, option, value) : next(curl, option, pointer);
}

}  // extern "C"

// The library's own reading of its clocks; everybody else's stays true.
extern "C" std::chrono::steady_clock::time_point FakeSteadyNow() __asm__("_ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point FakeSteadyNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::chrono::steady_clock::time_point(
      std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec) + Skipped(__builtin_return_address(0)));
}
