// The command line of the simulator program.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/account.h"
#include "sim/simulator.h"

namespace kivosim {

struct Arguments {
  Options options;
  std::uint16_t controlPort = 0;
  std::vector<Account> accounts;
};

/// Reads the command line. Prints what --help, --version or a mistake asks for and ends the process then, with 0 or 2.
Arguments ReadArguments(int argc, char** argv);

}  // namespace kivosim
