// Stands in front of libc and libcurl where the library calls them: keeps log lines, skips waits, records options.
// No <syslog.h> here: with fortified headers it defines these functions itself.
#include <curl/curl.h>
#include <grp.h>
#include <sys/stat.h>
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
  const InFake inFake;
  char line[16384];
  vsnprintf(line, sizeof line, format, arguments);
  if (InLibrary(caller)) return Capture(priority, line);
  Next<void(int, const char*, ...)>("syslog")(priority, "%s", line);
}

void Skip(const char* call, unsigned int amount, long long microseconds) {
  const InFake inFake;
  Plan(call, Words(amount));
  FakeState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  state.skippedMicroseconds += microseconds;
}

std::chrono::microseconds Skipped(const void* caller) {
  if (!InLibrary(caller)) return {};
  FakeState& state = State();
  const std::lock_guard<std::mutex> guard(state.mutex);
  return std::chrono::microseconds(state.skippedMicroseconds);
}

long Shortened(CURLoption option, long value) {
  const long divisor = State().divisor;
  if (divisor == 1 || value == 0) return value;
  return option == CURLOPT_LOW_SPEED_TIME ? (value + divisor - 1) / divisor : value / divisor;
}

/// Time-outs in seconds go on in milliseconds, so that a fraction of one is left when they are shortened.
CURLcode SetLong(CURLcode (*next)(CURL*, CURLoption, ...), CURL* curl, CURLoption option, long value) {
  if (option == CURLOPT_TIMEOUT) return next(curl, CURLOPT_TIMEOUT_MS, Shortened(option, value * 1000));
  if (option == CURLOPT_CONNECTTIMEOUT) return next(curl, CURLOPT_CONNECTTIMEOUT_MS, Shortened(option, value * 1000));
  const bool scaled =
      option == CURLOPT_TIMEOUT_MS || option == CURLOPT_CONNECTTIMEOUT_MS || option == CURLOPT_LOW_SPEED_TIME;
  return next(curl, option, scaled ? Shortened(option, value) : value);
}

bool IsText(CURLoption option) {
  const curl_easyoption* known = curl_easy_option_by_id(option);
  return known && known->type == CURLOT_STRING;
}

std::string OptionName(CURLoption option) {
  const curl_easyoption* known = curl_easy_option_by_id(option);
  return std::string("CURLOPT_") + (known ? known->name : std::to_string(option));
}

}  // namespace

#define FAKE_CURL(result, name, failure, parameters, arguments)                           \
  result name parameters {                                                                \
    const InFake inFake;                                                                  \
    static auto* const next = Next<result parameters>(#name);                             \
    const Planned planned = CALLED_BY_LIBRARY ? Plan(#name, Words arguments) : Planned(); \
    return planned.instead ? (failure) : next arguments;                                  \
  }
#define FAKE_SYSTEM(name, parameters, arguments)                                          \
  int name parameters noexcept {                                                          \
    const InFake inFake;                                                                  \
    static auto* const next = Next<int parameters>(#name);                                \
    const Planned planned = CALLED_BY_LIBRARY ? Plan(#name, Words arguments) : Planned(); \
    if (planned.instead) errno = EPERM;                                                   \
    return planned.instead ? -1 : next arguments;                                         \
  }

extern "C" {

void syslog(int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(priority, format, arguments, __builtin_return_address(0));
  va_end(arguments);
}
void __syslog_chk(int priority, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Log(priority, format, arguments, __builtin_return_address(0));
  va_end(arguments);
}
void vsyslog(int priority, const char* format, va_list arguments) {
  Log(priority, format, arguments, __builtin_return_address(0));
}
void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
  Log(priority, format, arguments, __builtin_return_address(0));
}

unsigned int sleep(unsigned int seconds) {
  if (!CALLED_BY_LIBRARY) return Next<unsigned int(unsigned int)>("sleep")(seconds);
  Skip("sleep", seconds, seconds * 1000000LL);
  return 0;
}
int usleep(useconds_t microseconds) {
  if (!CALLED_BY_LIBRARY) return Next<int(useconds_t)>("usleep")(microseconds);
  Skip("usleep", microseconds, microseconds);
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
FAKE_SYSTEM(chmod, (const char* path, mode_t mode), (path, mode))
FAKE_SYSTEM(fchmod, (int file, mode_t mode), (file, mode))
FAKE_SYSTEM(chown, (const char* path, uid_t owner, gid_t group), (path, owner, group))
FAKE_SYSTEM(lchown, (const char* path, uid_t owner, gid_t group), (path, owner, group))
FAKE_SYSTEM(fchown, (int file, uid_t owner, gid_t group), (file, owner, group))
FAKE_SYSTEM(rename, (const char* from, const char* to), (from, to))

FAKE_CURL(CURL*, curl_easy_init, nullptr, (void), ())
FAKE_CURL(CURLcode, curl_easy_perform, static_cast<CURLcode>(planned.result.value_or(CURLE_SEND_ERROR)), (CURL * curl),
          (curl))
FAKE_CURL(char*, curl_easy_escape, nullptr, (CURL * curl, const char* text, int length), (curl, text, length))
FAKE_CURL(curl_slist*, curl_slist_append, nullptr, (curl_slist * list, const char* line), (list, line))

CURLcode curl_easy_getinfo(CURL* curl, CURLINFO info, ...) {
  const InFake inFake;
  static auto* const next = Next<CURLcode(CURL*, CURLINFO, ...)>("curl_easy_getinfo");
  va_list arguments;
  va_start(arguments, info);
  void* const out = va_arg(arguments, void*);
  va_end(arguments);
  const Planned planned = CALLED_BY_LIBRARY ? Plan("curl_easy_getinfo", Words(curl, info)) : Planned();
  return planned.instead ? static_cast<CURLcode>(planned.result.value_or(CURLE_UNKNOWN_OPTION)) : next(curl, info, out);
}

CURLcode curl_easy_setopt(CURL* curl, CURLoption option, ...) {
  const InFake inFake;
  static auto* const next = Next<CURLcode(CURL*, CURLoption, ...)>("curl_easy_setopt");
  const int kind = static_cast<int>(option) / 10000 * 10000;
  const bool number = kind == CURLOPTTYPE_LONG, offset = kind == CURLOPTTYPE_OFF_T;
  va_list arguments;
  va_start(arguments, option);
  const curl_off_t value = number ? va_arg(arguments, long) : offset ? va_arg(arguments, curl_off_t) : 0;
  void* const pointer = number || offset ? nullptr : va_arg(arguments, void*);
  va_end(arguments);
  if (CALLED_BY_LIBRARY) {
    const std::string word = number || offset ? Words(value)
                             : IsText(option) ? Word(static_cast<const char*>(pointer))
                                              : Word(static_cast<const void*>(pointer));
    const Planned planned = Plan(OptionName(option), word);
    if (planned.instead) return static_cast<CURLcode>(planned.result.value_or(CURLE_UNKNOWN_OPTION));
    if (number) return SetLong(next, curl, option, static_cast<long>(value));
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
