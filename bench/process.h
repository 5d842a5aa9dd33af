// Runs programs to their end and tells what they cost; medians of alternating runs.
#ifndef VARNKIVO_BENCH_PROCESS_H_
#define VARNKIVO_BENCH_PROCESS_H_

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// Seconds of one process, from its start to its end: user and system time, and the clock's.
struct Cost {
  double cpu, wall;
};

/// What it prints to standard output is dropped. Throws std::runtime_error when the program cannot be started or does
/// not end with status 0.
Cost RunProgram(const std::vector<std::string>& arguments);

/// What it prints to standard output.
std::string OutputOf(const std::vector<std::string>& arguments);

double Median(std::vector<double> values);

/// The medians of `rounds` runs of each candidate. Runs alternate, and every second round goes backwards, so that what
/// else the machine does at the time meets all of them alike.
std::vector<Cost> Medians(int rounds, const std::vector<std::function<Cost()>>& candidates);

}  // namespace bench

#endif  // VARNKIVO_BENCH_PROCESS_H_
