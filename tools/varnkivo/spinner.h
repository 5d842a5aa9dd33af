// Shows on a terminal that a long call is under way, with the elapsed time and the limit; elsewhere it does nothing.
// The drawing is done by a child process: the library changes the ids of this process and forks, which go badly with a
// thread of ours.
#pragma once

#include <string>
#include <vector>

namespace kivotool {

class Secret;

class Spinner {
 public:
  /// `allowed` false (JSON mode): never drawn. `limitSeconds` is what the call can take at most. `inherited` are
  /// wiped in the drawing process, not in this one.
  Spinner(const std::string& what, int limitSeconds, bool allowed, const std::vector<Secret*>& inherited = {});
  Spinner(const Spinner&) = delete;
  Spinner& operator=(const Spinner&) = delete;
  ~Spinner();

 private:
  int pid_ = 0;
};

}  // namespace kivotool
