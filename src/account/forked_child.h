// Work in a forked child of a caller of unknown shape: threads, signal handlers, locks, descriptors.
#ifndef VARNKIVO_ACCOUNT_FORKED_CHILD_H_
#define VARNKIVO_ACCOUNT_FORKED_CHILD_H_

namespace varnkivo {

/// Runs `work` in a child made by the platform, waits for it and returns its wait status: that of _exit(-1) whenever
/// `work` came to its end, however it did. -1 when no child could be started or waited for. What the child logs is
/// written by the parent. A child that is stuck is ended by an alarm after 5 minutes. `work` must not throw.
int RunInChild(void (*work)());

}  // namespace varnkivo

#endif  // VARNKIVO_ACCOUNT_FORKED_CHILD_H_
