// Looks at a lock file after the library could not take it. Opens that file and changes nothing. The lock files lie in
// /tmp, where anyone may have put something else under the name: never a link followed, and nothing waited for.
#include "lock_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "descriptor.h"
#include "text.h"

namespace kivotool {

LockTrouble LookAtLockFile(const std::string& path) {
  const std::string look = "ls -ld " + ShellWord(path);
  const Descriptor file(open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  const int error = errno;
  struct stat facts {};
  if (file.Get() < 0 && error == ENOENT)
    return {"The lock file " + path + " could not be made (full or read-only disk?).", "df -h /tmp"};
  if (file.Get() < 0) return {"The lock file " + path + " cannot be opened: " + std::strerror(error) + ".", look};
  if (fstat(file.Get(), &facts) != 0 || !S_ISREG(facts.st_mode))
    return {"The lock file " + path + " is no ordinary file.", look};
  return {"", look};
}

std::string LockFileIn(const std::string& text) {
  const std::string begin = "Failed to lock file: ";
  if (text.rfind(begin, 0) != 0) return "";
  return text.substr(begin.size(), text.find_first_of(" \n", begin.size()) - begin.size());
}

}  // namespace kivotool
