// System calls per call of each operation: strace counts those of 100 and of 200 calls, and the difference is without
// what a process does once.
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "operations.h"
#include "process.h"
#include "rows.h"

namespace bench {
namespace {

constexpr int kCalls = 100;

/// The fourth word of the line "100.00 SECONDS USECS CALLS [ERRORS] total".
double TotalOf(const std::string& path) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line);
    std::string percent, seconds, usecs;
    double calls = 0;
    const bool isTotal = line.size() > 5 && line.compare(line.size() - 5, 5, "total") == 0;
    if (isTotal && words >> percent >> seconds >> usecs >> calls) return calls;
  }
  throw std::runtime_error("strace gave no total");
}

double SystemCalls(const char* name, int calls) {
  const std::string counts = "/tmp/varnkivo-bench-strace";
  RunProgram({"strace", "-c", "-f", "-o", counts, BENCH_CALLS, name, std::to_string(calls)});
  const double total = TotalOf(counts);
  std::remove(counts.c_str());
  return total;
}

}  // namespace

void AddSystemCallRows(Table& table) {
  for (const Operation& operation : Operations())
    table.Show(std::string("system calls a call: ") + operation.name, Unit::kCount,
               (SystemCalls(operation.name, 2 * kCalls) - SystemCalls(operation.name, kCalls)) / kCalls);
}

}  // namespace bench
