// Drops raised ids. Touches the ids of the process. The saved ids go too: with one left a program could take the rights
// back. The supplementary groups are the caller's own all along; a set-id bit does not change them.
#include "rights.h"

#include <unistd.h>

namespace kivotool {

bool DropRaisedRights() {
  const gid_t group = getgid();
  const uid_t user = getuid();
  if (setresgid(group, group, group) != 0 || setresuid(user, user, user) != 0) return false;  // the group first
  uid_t users[3];
  gid_t groups[3];
  if (getresuid(&users[0], &users[1], &users[2]) != 0 || getresgid(&groups[0], &groups[1], &groups[2]) != 0)
    return false;
  for (int i = 0; i < 3; ++i) {
    if (users[i] != user || groups[i] != group) return false;
  }
  return true;
}

}  // namespace kivotool
