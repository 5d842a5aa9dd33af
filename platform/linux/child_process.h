// Starting a program without a shell, from a program with any number of threads. The child has no descriptor but 0, 1
// and 2, no handler and no blocked signal; between fork and exec nothing but system calls runs in it.
#ifndef VARNPLATFORM_CHILD_PROCESS_H
#define VARNPLATFORM_CHILD_PROCESS_H

#include <sys/types.h>

#include <cstdarg>
#include <mutex>
#include <string>
#include <vector>

namespace varnplatform {

struct Child {
  std::string program;
  std::vector<std::string> arguments;                     // after argv[0]
  const std::vector<std::string>* environment = nullptr;  // "NAME=value" texts; null: the caller's
  int descriptors[3] = {-1, -1, -1};                      // what 0, 1, 2 become, each above 2; -1: the caller's
  bool raiseIds = false;                                  // all ids become 0
  bool ownGroup = false;                                  // a process group of its own, so that it can be ended whole
};

/// Process id, or -1 where the program could not be started.
pid_t StartChild(const Child& child);

/// Waits, also over signals. The exit status 0..255, or fails where a signal ended it.
int WaitForExit(pid_t pid);
/// What a wait status means, in the same terms.
int ExitStatus(int status);

/// The rest of a call's arguments, up to the null.
std::vector<std::string> ArgumentTexts(const char* first, va_list rest);

/// Held around every fork of this library, so that no child ends up with another one's pipe. Forks of the program
/// itself take their turn too: a child that was made in the middle would find it taken for ever.
class ForkTurn {
 public:
  ForkTurn();
  ForkTurn(const ForkTurn&) = delete;
  ForkTurn& operator=(const ForkTurn&) = delete;
  ~ForkTurn();
};

/// A pipe, close-on-exec, both ends above 2 even where the caller has closed its standard descriptors.
bool MakePipe(int ends[2]);

}  // namespace varnplatform

#endif  // VARNPLATFORM_CHILD_PROCESS_H
