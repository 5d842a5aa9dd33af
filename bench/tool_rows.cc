// `varnkivo token` as a whole process, on a valid token, against the same work by hand with the same libraries loaded,
// and against a program that has next to nothing to load.
#include "process.h"
#include "rows.h"

namespace bench {
namespace {

constexpr int kRounds = 101;

}  // namespace

void AddToolRows(Table& table) {
  const std::vector<Cost> costs = Medians(
      kRounds, {[] { return RunProgram({BENCH_PRINT_TOKEN}); },
                [] {
                  return RunProgram({BENCH_TOOL, "token", "--format", "token"});
                },
                [] {
                  return RunProgram({BENCH_PRINT_FILE, "/usr/varn/etc/varnholt-account/private/lum_token.json"});
                }});
  table.Compare("varnkivo token / by hand, same libraries, wall", Unit::kMilliseconds, costs[1].wall, costs[0].wall,
                1.5);
  table.Show("the same, CPU", Unit::kMilliseconds, costs[1].cpu, costs[0].cpu);
  table.Show("varnkivo token / open, read, print in C, wall", Unit::kMilliseconds, costs[1].wall, costs[2].wall);
  table.Show("the same, CPU", Unit::kMilliseconds, costs[1].cpu, costs[2].cpu);
}

}  // namespace bench
