// The system calls that faults are put into, with the errors that each may meet on a real machine, and the name of a
// point: the n-th call of one kind in one task. Numbering all calls in a row would not do: a thread that waits for
// another makes more or fewer polls each time, and everything behind them would shift.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace faults {

struct Call {
  std::string name;          // "openat"; "call39" for one that is never made to fail
  std::vector<int> errors;   // that it is made to fail with
  bool changesFile = false;  // worth a kill behind it too
};
/// `second` is the call's second argument, which fcntl's errors depend on.
Call FactsOf(long number, std::uint64_t second);

struct Point {
  int task = 0;  // threads and processes in the order they appear; the first is 0
  long call = 0;
  int nth = 0;  // from 0, among the task's calls of this kind
  bool operator==(const Point& other) const { return task == other.task && call == other.call && nth == other.nth; }
};

enum class Kind { kNone, kKill, kKillAfter, kFail, kMemory };

struct Injection {
  Kind kind = Kind::kNone;
  Point at = {};
  int error = 0;
  int allocation = 0;  // kMemory: which one, from 1
};

/// "fail:0.openat.3:EIO", "kill:0.close.1", "kill-after:0.rename.0", "memory:17".
std::string Text(const Injection& injection);

}  // namespace faults
