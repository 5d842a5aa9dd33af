// Deletes the account record in a child process that leaves the caller's control group, with the "kivo/logout" plug-ins
// before and after. Touches the record and the child's control group.
// The child never logs by itself: another thread may have held syslog's lock when it was forked.
#include "forked_child.h"
#include "internal/account_files.h"
#include "internal/operation.h"
#include "internal/privilege_bracket.h"
#include "varn/platform.h"
#include "varnkivo.h"

#include <fcntl.h>
#include <unistd.h>

namespace varnkivo {
namespace {

constexpr const char* kSource = "kivo_config_remove";
constexpr const char* kRootGroup = "/sys/fs/cgroup/systemd/cgroup.procs";

/// So that the end of the caller's service does not take the plug-ins with it. Hosts without this hierarchy go on.
void MoveToRootControlGroup() {
  const PrivilegeBracket bracket({kSource, 25});
  if (!bracket.Entered()) return;
  const int file = open(kRootGroup, O_WRONLY | O_CLOEXEC | O_NOFOLLOW);
  if (file < 0 || write(file, "0", 1) != 1) LogError({kSource, 32}, "Failed to write %s, reason=%m", kRootGroup);
  if (file >= 0) close(file);
}

void DeleteRecord(const Operation& op) {
  const PrivilegeBracket bracket({kSource, 69});
  if (!bracket.Entered()) op.Stop({kKeepCode, 69}, "Change permission failed");
  unlink(kRecordFile);
}

void RunPlugins(const Operation& op, PluginSession& plugins, _tag_sdk_plugin_action_ action, int line) {
  if (plugins.Run(action) < 0)
    op.Stop({kKeepCode, line}, "VLIBPluginAction failed, action=%u", static_cast<unsigned int>(action));
}

int RemoveInChild() noexcept {
  return RunOperation(kSource, [](Operation& op) {
    MoveToRootControlGroup();
    PluginSession plugins(op, "kivo/logout", 53);
    RunPlugins(op, plugins, VLIB_PLUGIN_ACTION_PRE, 59);
    DeleteRecord(op);
    RunPlugins(op, plugins, VLIB_PLUGIN_ACTION_POST, 75);
    return 0;
  });
}

}  // namespace
}  // namespace varnkivo

int VARNKIVOAccountRemove(void) {
  using namespace varnkivo;
  return Guarded(kSource, [] { return RunInChild([] { RemoveInChild(); }); });
}
