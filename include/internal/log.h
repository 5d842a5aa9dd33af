// The library's one way to syslog: every line begins with its source name and line number.
#ifndef VARNKIVO_INTERNAL_LOG_H_
#define VARNKIVO_INTERNAL_LOG_H_

#include <syslog.h>

namespace varnkivo {

/// Where a log line comes from. Made from a source name alone it takes the line of the call it is made in.
struct Site {
  // NOLINTNEXTLINE(google-explicit-constructor): the conversion at the call is how the line becomes known
  Site(const char* sourceName, int at = __builtin_LINE()) : source(sourceName), line(at) {}
  const char* source;
  int line;
};

/// Logs "SOURCE:LINE TEXT" at LOG_ERR. Keeps errno, which "%m" may name.
void LogError(Site site, const char* format, ...) __attribute__((format(printf, 2, 3)));
/// The same at `priority`, which may hold a facility.
void LogAt(int priority, Site site, const char* format, ...) __attribute__((format(printf, 3, 4)));
void LogLine(int priority, Site site, const char* format, __builtin_va_list arguments)
    __attribute__((format(printf, 3, 0)));

/// Sends this process's lines into `socket` (packets, SOCK_SEQPACKET) instead of to syslog. For a forked child only:
/// another thread may have held syslog's lock at the fork, and then the child would wait for it for ever.
void LogIntoSocket(int socket);
/// Writes one line that a child sent to syslog; waits for it. False when the child has sent an empty packet or is gone.
bool LogFromSocket(int socket);

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_LOG_H_
