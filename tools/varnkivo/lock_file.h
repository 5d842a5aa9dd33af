// Why a lock could not be taken although nobody holds it.
#pragma once

#include <string>

namespace kivotool {

struct LockTrouble {
  std::string cause;  ///< empty: the file can be opened and locked by this process
  std::string run;    ///< shows it to an administrator
};

/// Looks at the lock file `path` as a locker opens it. Makes nothing and waits for nothing.
LockTrouble LookAtLockFile(const std::string& path);
/// The path in "Failed to lock file: PATH [code=22]..."; empty in any other text.
std::string LockFileIn(const std::string& text);

}  // namespace kivotool
