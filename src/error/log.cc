// Writes log lines to syslog, or from a forked child through a pipe to its parent, which writes them.
// Touches nothing but syslog. Lines are bounded: never log a body without Redact, which bounds it.
#include "internal/log.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace varnkivo {
namespace {

constexpr std::size_t kLineSize = 12288;  // room for a redacted body with every byte escaped
std::atomic<int> gLogPipe{-1};

struct Record {
  int priority;
  char text[kLineSize];
};

/// All of it or nothing more: a parent that went away is not worth a word.
void WriteAll(int file, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, data, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

bool ReadAll(int file, char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t got = read(file, data, size);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    data += got;
    size -= static_cast<std::size_t>(got);
  }
  return true;
}

}  // namespace

void LogLine(int priority, Site site, const char* format, va_list arguments) {
  const int savedErrno = errno;
  Record record;
  record.priority = priority;
  const int prefix = std::snprintf(record.text, sizeof record.text, "%s:%d ", site.source, site.line);
  const std::size_t used = prefix > 0 && static_cast<std::size_t>(prefix) < sizeof record.text ? prefix : 0;
  errno = savedErrno;
  std::vsnprintf(record.text + used, sizeof record.text - used, format, arguments);
  const int pipe = gLogPipe.load(std::memory_order_relaxed);
  if (pipe < 0) {
    syslog(priority, "%s", record.text);
  } else {
    const int length = static_cast<int>(std::strlen(record.text));
    WriteAll(pipe, reinterpret_cast<const char*>(&record.priority), sizeof record.priority);
    WriteAll(pipe, reinterpret_cast<const char*>(&length), sizeof length);
    WriteAll(pipe, record.text, static_cast<std::size_t>(length));
  }
  errno = savedErrno;
}

void LogError(Site site, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogLine(LOG_ERR, site, format, arguments);
  va_end(arguments);
}

void LogAt(int priority, Site site, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  LogLine(priority, site, format, arguments);
  va_end(arguments);
}

void LogIntoPipe(int pipe) { gLogPipe.store(pipe, std::memory_order_relaxed); }

void LogFromPipe(int pipe) {
  Record record;
  int length = 0;
  while (ReadAll(pipe, reinterpret_cast<char*>(&record.priority), sizeof record.priority) &&
         ReadAll(pipe, reinterpret_cast<char*>(&length), sizeof length)) {
    if (length < 0 || static_cast<std::size_t>(length) >= kLineSize ||
        !ReadAll(pipe, record.text, static_cast<std::size_t>(length)))
      return;
    record.text[length] = '\0';
    syslog(record.priority, "%s", record.text);
  }
}

}  // namespace varnkivo
