// The operations that faults are put into. A new one is a function and a row in scenarios.cc.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace faults {

struct Scenario {
  const char* name;
  uid_t uid;           // whose process: 0, the account service's, or any other, which can come back to root
  std::string record;  // the account record before; empty: none
  int (*run)();        // 0 or above is success
  std::vector<std::string> promised;  // keys of the new record that success stands for; none: all of the record
  bool resultTells;                   // false: the operation answers the same whether it worked or not
};

const std::vector<Scenario>& Scenarios();

/// What no log may show.
std::vector<std::string> Secrets();

}  // namespace faults
