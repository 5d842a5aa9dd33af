// Writes log lines to syslog, or from a forked child through a socket to its parent, which writes them.
// Touches nothing but syslog. Lines are bounded: never log a body without Redact, which bounds it.
#include "internal/log.h"

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace varnkivo {
namespace {

constexpr std::size_t kLineSize = 12288;  // room for a redacted body with every byte escaped
std::atomic<int> gLogSocket{-1};

struct Record {
  int priority;
  char text[kLineSize];
};

/// One packet a line. A parent that went away is not worth a word, nor a signal.
void SendRecord(int socket, const Record& record) {
  const std::size_t size = offsetof(Record, text) + std::strlen(record.text);
  while (send(socket, &record, size, MSG_NOSIGNAL) < 0 && errno == EINTR) continue;
}

}  // namespace

void LogLine(int priority, Site site, const char* format, va_list arguments) {
  const int savedErrno = errno;
  Record record;
  record.priority = priority;
  const int prefix = std::snprintf(record.text, sizeof record.text, "%s:%d ", site.source, site.line);
  const std::size_t used =
      prefix > 0 && static_cast<std::size_t>(prefix) < sizeof record.text ? static_cast<std::size_t>(prefix) : 0;
  errno = savedErrno;
  std::vsnprintf(record.text + used, sizeof record.text - used, format, arguments);
  const int socket = gLogSocket.load(std::memory_order_relaxed);
  if (socket < 0) {
    syslog(priority, "%s", record.text);
  } else {
    SendRecord(socket, record);
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

void LogIntoSocket(int socket) { gLogSocket.store(socket, std::memory_order_relaxed); }

bool LogFromSocket(int socket) {
  Record record;
  ssize_t got = 0;
  do got = recv(socket, &record, sizeof record - 1, 0);
  while (got < 0 && errno == EINTR);
  if (got < static_cast<ssize_t>(offsetof(Record, text))) return false;
  reinterpret_cast<char*>(&record)[got] = '\0';
  syslog(record.priority, "%s", record.text);
  return true;
}

}  // namespace varnkivo
