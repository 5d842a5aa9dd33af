// Deletes the account record in a child process that leaves the caller's control group, with the "kivo/logout" plug-ins
// before and after. Touches the record and the child's control group.
// The child says nothing itself: what it would log goes to the parent through a pipe, because another thread may have
// held syslog's lock when it was forked. An alarm ends a child that is stuck all the same.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "forked_child.h"
#include "internal/account_files.h"
#include "internal/guard.h"
#include "internal/log.h"
#include "internal/privilege_bracket.h"
#include "varn/platform.h"
#include "varnkivo.h"

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_config_remove";
constexpr unsigned int kMostSeconds = 300;
constexpr const char* kRootGroup = "/sys/fs/cgroup/systemd/cgroup.procs";

/// So that the end of the caller's service does not take the plug-ins with it. Hosts without this hierarchy go on.
void MoveToRootControlGroup() {
  const PrivilegeBracket bracket({kSource, 25});
  if (!bracket.Entered()) {
    LogError({kSource, 25}, "Change permission failed");
    return;
  }
  const int file = open(kRootGroup, O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  if (file < 0 || write(file, "0", 1) != 1) LogError({kSource, 32}, "Failed to write %s, reason=%m", kRootGroup);
  if (file >= 0) close(file);
}

bool RunPlugins(_tag_sdk_plugin_action_ action, VLIBPlugin* handle, int line) {
  if (VLIBPluginAction(action, handle) >= 0) return true;
  LogError({kSource, line}, "VLIBPluginAction failed, action=%u", static_cast<unsigned int>(action));
  return false;
}

void DeleteRecordBetweenPlugins() {
  MoveToRootControlGroup();
  VLIBPlugin* handle = nullptr;
  if (VLIBPluginSDKInit("kivo", "kivo/logout", &handle) < 0) {
    LogError({kSource, 53}, "VLIBPluginSDKInit failed");
    return;
  }
  if (!RunPlugins(VLIB_PLUGIN_ACTION_PRE, handle, 59)) return;
  {
    const PrivilegeBracket bracket({kSource, 69});
    if (!bracket.Entered()) {
      LogError({kSource, 69}, "Change permission failed");
      return;
    }
    unlink(kRecordFile);
  }
  RunPlugins(VLIB_PLUGIN_ACTION_POST, handle, 75);
  VLIBPluginExit(handle);
}

[[noreturn]] void RunChild(int pipe) noexcept {
  signal(SIGALRM, SIG_DFL);
  alarm(kMostSeconds);
  LetGoOfDescriptors(pipe);
  LogIntoPipe(pipe);
  try {
    DeleteRecordBetweenPlugins();
  } catch (...) {  // must never return into the caller's code
    Unexpected(kSource);
  }
  _exit(-1);
}

int WaitFor(pid_t child) {
  int status = 0;
  pid_t waited = 0;
  do waited = waitpid(child, &status, 0);
  while (waited < 0 && errno == EINTR);
  return waited == child ? status : -1;  // a caller that reaps children itself took the status
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountRemove(void) {
  using namespace varnkivo;
  return Guarded(kSource, [] {
    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) != 0) return -1;
    const pid_t child = VLIBCProcFork();
    if (child == 0) RunChild(pipe[1]);
    close(pipe[1]);
    if (child > 0) LogFromPipe(pipe[0]);
    close(pipe[0]);
    return child > 0 ? WaitFor(child) : -1;
  });
}
