// Plug-ins: executables in "/usr/varn/lib/plugins/PRODUCT/EVENT/" that other packages put there to hear of events. They
// run one after the other in the order of their names, each for at most a minute. An event without plug-ins succeeds:
// a removal of the account waits for the result.
#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "child_process.h"
#include "error.h"
#include "file_util.h"
#include "report_log.h"

struct VLIBPlugin {
  std::string product, event;
  std::vector<std::string> programs;
};

namespace varnplatform {
namespace {

const char* const kPluginRoot = "/usr/varn/lib/plugins/";
constexpr std::int64_t kTimeoutMs = 60000;
constexpr long kLongestPauseNs = 20'000'000;

/// Parts of letters, digits, '.', '-' and '_' between single slashes, none starting with a dot.
bool IsPathName(const std::string& name) {
  char before = '/';
  for (const char c : name) {
    const bool allowed = (c > 0 && std::isalnum(static_cast<unsigned char>(c))) || c == '-' || c == '_' ||
                         (before != '/' && (c == '.' || c == '/'));
    if (!allowed) return false;
    before = c;
  }
  return before != '/';
}

/// Whoever may write here acts as this process: root, and the account service where the process is no more than that.
bool IsTrusted(const struct stat& status) {
  const bool fromTrusted = status.st_uid == 0 || (status.st_uid == kAccountUid && geteuid() == kAccountUid);
  return fromTrusted && (status.st_mode & S_IWOTH) == 0;
}

bool IsPlugin(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode) || (status.st_mode & 0111) == 0) return false;
  if (!IsTrusted(status)) SystemLog(LOG_WARNING, "plug-in " + path + " skipped: its owner or mode is not safe");
  return IsTrusted(status);
}

bool ListPrograms(const std::string& directory, std::vector<std::string>* programs) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(opendir(directory.c_str()), closedir);
  if (!open) return errno == ENOENT || FailErrno(VLIB_ERR_OPEN) == 0;
  struct stat status {};
  if (fstat(dirfd(open.get()), &status) != 0 || !IsTrusted(status)) return Fail(VLIB_ERR_ACCESS) == 0;
  while (const dirent* entry = readdir(open.get())) {
    const std::string path = directory + entry->d_name;
    if (entry->d_name[0] != '.' && IsPlugin(path)) programs->push_back(path);
  }
  std::sort(programs->begin(), programs->end());
  return true;
}

std::int64_t NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * std::int64_t{1000} + now.tv_nsec / 1'000'000;
}

/// Exit status, or fails; a plug-in that takes too long is ended with its whole process group.
int WaitWithTimeout(pid_t pid) {
  const std::int64_t deadline = NowMs() + kTimeoutMs;
  timespec pause{0, 500'000};
  int status = 0;
  for (;;) {
    const pid_t ended = waitpid(pid, &status, WNOHANG);
    if (ended == pid) return ExitStatus(status);
    if (ended < 0 && errno == ECHILD) return 0;  // the caller's kernel or another thread has its status: not a failure
    if (ended < 0 && errno != EINTR) return FailErrno(VLIB_ERR_SYSTEM);
    if (NowMs() >= deadline) break;
    nanosleep(&pause, nullptr);
    pause.tv_nsec = std::min(pause.tv_nsec * 2, kLongestPauseNs);
  }
  kill(-pid, SIGKILL);
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return Fail(VLIB_ERR_TIMEOUT);
}

/// Standard descriptors on the null device: a daemon that a plug-in leaves behind must not hold the caller's pipes.
int RunProgram(const std::string& program, const std::vector<std::string>& environment) {
  const UniqueFd null = OpenFile("/dev/null", O_RDWR);
  const UniqueFd high(null ? fcntl(null.Get(), F_DUPFD_CLOEXEC, 3) : -1);
  if (!high) return FailErrno(VLIB_ERR_OPEN);
  Child child;
  child.program = program;
  child.environment = &environment;
  std::fill(std::begin(child.descriptors), std::end(child.descriptors), high.Get());
  child.ownGroup = true;
  const pid_t pid = StartChild(child);
  return pid < 0 ? -1 : WaitWithTimeout(pid);
}

int RunAll(_tag_sdk_plugin_action_ action, const VLIBPlugin& session) {
  const std::string number = std::to_string(static_cast<int>(action));
  // A clean environment: the caller's may hold secrets.
  const std::vector<std::string> environment = {"PATH=/usr/sbin:/usr/bin:/sbin:/bin",
                                                "VARN_PLUGIN_PRODUCT=" + session.product,
                                                "VARN_PLUGIN_EVENT=" + session.event, "VARN_PLUGIN_ACTION=" + number};
  int result = 0;
  for (const std::string& program : session.programs) {
    const int status = RunProgram(program, environment);
    if (status == 0) continue;
    result = status > 0 ? Fail(VLIB_ERR_PLUGIN) : -1;
    const std::string why = status > 0                          ? "status " + std::to_string(status)
                            : VLIBCErrGet() == VLIB_ERR_TIMEOUT ? "too slow"
                                                                : "not started, or ended by a signal";
    SystemLog(LOG_ERR, "plug-in " + program + " failed, action=" + number + ": " + why);
  }
  return result;
}

}  // namespace
}  // namespace varnplatform

using namespace varnplatform;

int VLIBPluginSDKInit(const char* product, const char* event, VLIBPlugin** handle, int /*flags*/) {
  if (handle) *handle = nullptr;
  if (!product || !event || !handle) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    auto session = std::make_unique<VLIBPlugin>(VLIBPlugin{product, event, {}});
    if (!IsPathName(session->product) || !IsPathName(session->event)) return Fail(VLIB_ERR_BAD_PARAMETER);
    const std::string directory = kPluginRoot + session->product + "/" + session->event + "/";
    if (!ListPrograms(directory, &session->programs)) return -1;
    *handle = session.release();
    return 0;
  });
}

int VLIBPluginAction(_tag_sdk_plugin_action_ action, VLIBPlugin* handle) {
  if (!handle || (action != VLIB_PLUGIN_ACTION_PRE && action != VLIB_PLUGIN_ACTION_POST)) {
    return Fail(VLIB_ERR_BAD_PARAMETER);
  }
  return Guarded([&] { return RunAll(action, *handle); });
}

int VLIBPluginExit(VLIBPlugin* handle) {
  delete handle;
  return 0;
}
