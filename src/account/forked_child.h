// What a child forked from a caller of unknown shape must do first.
#ifndef VARNKIVO_ACCOUNT_FORKED_CHILD_H_
#define VARNKIVO_ACCOUNT_FORKED_CHILD_H_

namespace varnkivo {

/// Lets go of every descriptor but 0, 1, 2 and `keep`, so that the child does not hold the caller's locks when the
/// caller dies. Their numbers stay taken (by /dev/null): syslog's socket may be among them, and what syslog sends must
/// not land in a file that happens to get its number.
void LetGoOfDescriptors(int keep);

}  // namespace varnkivo

#endif  // VARNKIVO_ACCOUNT_FORKED_CHILD_H_
