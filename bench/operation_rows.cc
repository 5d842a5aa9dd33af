// Time per call of the operations, by Google Benchmark: repetitions of all of them in random order, medians at the end.
#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

#include "operations.h"
#include "process.h"
#include "rows.h"

namespace bench {
namespace {

constexpr int kRepetitions = 21;
constexpr double kLeastSeconds = 0.03;  // of one repetition

/// Keeps the seconds per call of every repetition, and prints nothing: the table does.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      const double calls = static_cast<double>(run.iterations);
      cpu_[run.run_name.function_name].push_back(run.cpu_accumulated_time / calls);
      wall_[run.run_name.function_name].push_back(run.real_accumulated_time / calls);
    }
  }
  double Cpu(const std::string& name) { return Median(cpu_[name]); }
  double Wall(const std::string& name) { return Median(wall_[name]); }

 private:
  std::map<std::string, std::vector<double>> cpu_, wall_;
};

void RunAll(Collector& collector) {
  for (const Operation& operation : Operations()) {
    benchmark::RegisterBenchmark(operation.name,
                                 [run = operation.run](benchmark::State& state) {
                                   unsigned int turn = 0;
                                   for (auto _ : state) run(turn++);
                                 })
        ->Repetitions(kRepetitions)
        ->MinTime(kLeastSeconds);
  }
  std::string program = "varnkivo-bench", order = "--benchmark_enable_random_interleaving=true";
  char* arguments[] = {program.data(), order.data(), nullptr};
  int count = 2;
  benchmark::Initialize(&count, arguments);
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
}

}  // namespace

void AddOperationRows(Table& table) {
  Collector times;
  RunAll(times);
  table.Compare("User get / open, read, scan, CPU", Unit::kMicroseconds, times.Cpu("get"), times.Cpu("get-by-hand"), 3);
  table.Compare("User set / file, fsync, rename, fsync, wall", Unit::kMilliseconds, times.Wall("set"),
                times.Wall("set-by-hand"), 1.2);
  table.Show("the same, CPU", Unit::kMicroseconds, times.Cpu("set"), times.Cpu("set-by-hand"));
  table.Show("cached account query, CPU", Unit::kMicroseconds, times.Cpu("query"));
  table.Show("VARNKIVOAccountGet, CPU", Unit::kMicroseconds, times.Cpu("account-get"));
  table.Show("device token, CPU", Unit::kMicroseconds, times.Cpu("device-token"));
  table.Show("FileLock lock and unlock, CPU", Unit::kMicroseconds, times.Cpu("lock"));
  table.Compare("valid access token: PkceClient / lock, read, parse, CPU", Unit::kMicroseconds,
                times.Cpu("access-token"), times.Cpu("access-token-by-hand"), 2);
  table.Show("the same from an AccountPkceService, CPU", Unit::kMicroseconds, times.Cpu("service-access-token"),
             times.Cpu("access-token-by-hand"));
  table.Compare("valid token of a package / lock twice, read, parse, CPU", Unit::kMicroseconds,
                times.Cpu("package-access-token"), times.Cpu("package-access-token-by-hand"), 2);
  table.Show("making an AccountPkceService, CPU", Unit::kMicroseconds, times.Cpu("make-service"));
}

}  // namespace bench
