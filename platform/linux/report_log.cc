// Reports: a datagram to "/dev/log" and a line appended to a file. A line is one write to a file opened for appending,
// so lines of several processes never mix. syslog(3) is avoided on purpose: its lock may be held by a thread that a
// forked child does not have.
#include "report_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <json/value.h>
#include <json/writer.h>

#include "error.h"
#include "file_util.h"

namespace varnplatform {
namespace {

constexpr mode_t kReportMode = 0640;

/// Proleptic Gregorian date of a day number; gmtime_r takes the C library's time-zone lock.
std::string UtcText(std::time_t now) {
  const long long days = now / 86400, second = now % 86400;
  const long long shifted = days + 719468, era = shifted / 146097, dayOfEra = shifted % 146097;
  const long long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const long long month = (5 * dayOfYear + 2) / 153;  // counted from March
  const long long day = dayOfYear - (153 * month + 2) / 5 + 1;
  const long long year = yearOfEra + era * 400 + (month >= 10 ? 1 : 0);
  char text[64];
  std::snprintf(text, sizeof text, "%04lld-%02lld-%02lldT%02lld:%02lld:%02lldZ", year,
                month < 10 ? month + 3 : month - 9, day, second / 3600, second / 60 % 60, second % 60);
  return text;
}

void MakeDirectories(const std::string& directory) {
  for (std::size_t at = directory.find('/', 1);; at = directory.find('/', at + 1)) {
    mkdir(directory.substr(0, at).c_str(), 0755);  // what matters is whether the file opens afterwards
    if (at == std::string::npos) return;
  }
}

/// Root hands a new file to the account service, which appends to it too.
bool PrepareNewFile(int fd) {
  if (geteuid() == 0 && !GiveAway(fd, kAccountUid, kAccountGid)) return false;
  return fchmod(fd, kReportMode) == 0;  // whatever the umask
}

UniqueFd OpenForAppending(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  UniqueFd fd = OpenFile(path, kFlags);
  if (fd || errno != ENOENT) return fd;
  MakeDirectories(DirectoryOf(path));
  fd = OpenFile(path, kFlags | O_CREAT | O_EXCL, kReportMode);
  if (!fd && errno == EEXIST) return OpenFile(path, kFlags);  // somebody else was first
  if (fd && !PrepareNewFile(fd.Get())) fd.Reset();
  return fd;
}

bool AppendLine(const std::string& path, const std::string& line) {
  const UniqueFd fd = OpenForAppending(path);
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0) return FailErrno(VLIB_ERR_OPEN) == 0;
  if (!S_ISREG(status.st_mode)) return Fail(VLIB_ERR_NOT_REGULAR) == 0;
  while (flock(fd.Get(), LOCK_EX) != 0 && errno == EINTR) {
  }
  if (fstat(fd.Get(), &status) != 0) return FailErrno(VLIB_ERR_OPEN) == 0;
  char last = '\n';  // what a full disk has cut short must not take this line with it
  const bool torn = status.st_size > 0 && pread(fd.Get(), &last, 1, status.st_size - 1) == 1 && last != '\n';
  const std::string text = torn ? "\n" + line : line;
  ssize_t written;
  do {
    written = write(fd.Get(), text.data(), text.size());
  } while (written < 0 && errno == EINTR);
  return written == static_cast<ssize_t>(text.size()) || FailErrno(VLIB_ERR_WRITE) == 0;
}

}  // namespace

void SystemLog(int priority, const std::string& text) {
  const UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd) return;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  const std::string packet =
      "<" + std::to_string(LOG_USER | priority) + ">varnplatform[" + std::to_string(getpid()) + "]: " + text;
  sendto(fd.Get(), packet.data(), packet.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
         sizeof address);
}

bool Report(int priority, const char* what, const char* path, Json::Value record) {
  record["time"] = UtcText(std::time(nullptr));
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";  // one line; everything but printable ASCII comes out escaped
  const std::string line = Json::writeString(writer, record);
  SystemLog(priority, std::string(what) + " " + line);
  return AppendLine(path, line + "\n");
}

}  // namespace varnplatform
