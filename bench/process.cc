// fork, exec and wait4: the kernel's own account of each child.
#include "process.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace bench {
namespace {

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

/// With `output` as its standard output.
Cost Run(const std::vector<std::string>& arguments, const char* output) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const auto start = std::chrono::steady_clock::now();
  pid_t pid = 0;
  const int failed = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed) throw std::runtime_error("cannot start " + arguments[0]);
  int status = 0;
  rusage usage = {};
  while (wait4(pid, &status, 0, &usage) < 0)
    if (errno != EINTR) throw std::runtime_error("cannot wait for " + arguments[0]);
  const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(arguments[0] + " failed");
  return {Seconds(usage.ru_utime) + Seconds(usage.ru_stime), wall.count()};
}

}  // namespace

Cost RunProgram(const std::vector<std::string>& arguments) { return Run(arguments, "/dev/null"); }

std::string OutputOf(const std::vector<std::string>& arguments) {
  const char* const path = "/tmp/varnkivo-bench-output";
  Run(arguments, path);
  std::ifstream file(path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

double Median(std::vector<double> values) {
  if (values.empty()) throw std::runtime_error("nothing was measured");
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::vector<Cost> Medians(int rounds, const std::vector<std::function<Cost()>>& candidates) {
  std::vector<std::vector<double>> cpu(candidates.size()), wall(candidates.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      const std::size_t next = round % 2 == 0 ? i : candidates.size() - 1 - i;
      const Cost cost = candidates[next]();
      cpu[next].push_back(cost.cpu);
      wall[next].push_back(cost.wall);
    }
  }
  std::vector<Cost> medians;
  for (std::size_t i = 0; i < candidates.size(); ++i) medians.push_back({Median(cpu[i]), Median(wall[i])});
  return medians;
}

}  // namespace bench
