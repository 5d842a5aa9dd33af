// What is timed call by call and counted in system calls: operations of the library, and by hand the least that gives
// the same result.
#ifndef VARNKIVO_BENCH_OPERATIONS_H_
#define VARNKIVO_BENCH_OPERATIONS_H_

#include <vector>

namespace bench {

struct Operation {
  const char* name;
  /// One call; `turn` tells one call from the next, for those that have to write something new. Throws when it fails.
  void (*run)(unsigned int turn);
};

const std::vector<Operation>& Operations();

}  // namespace bench

#endif  // VARNKIVO_BENCH_OPERATIONS_H_
