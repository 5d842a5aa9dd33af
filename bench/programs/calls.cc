// bench_calls NAME N: makes N calls of an operation, for somebody who counts from outside what they do.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "../operations.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    for (const bench::Operation& operation : bench::Operations()) {
      if (std::strcmp(operation.name, argv[1]) != 0) continue;
      const auto times = static_cast<unsigned int>(std::strtoul(argv[2], nullptr, 10));
      for (unsigned int turn = 0; turn < times; ++turn) operation.run(turn);
      return 0;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_calls: %s\n", error.what());
    return 1;
  }
  return 2;
}
