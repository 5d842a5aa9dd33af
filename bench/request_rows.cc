// Requests: fifty of one process, and the first of a fresh one, each against libcurl alone.
#include <string>
#include <utility>
#include <vector>

#include "bare_client.h"
#include "process.h"
#include "programs/request.h"
#include "rows.h"

namespace bench {
namespace {

constexpr int kRounds = 9, kFreshRounds = 41;

/// The command of the bare client, with the bytes that the sender puts on the wire.
std::vector<std::string> BareClient(const char* times) {
  std::vector<std::pair<std::string, std::string>> parameters;
  for (const auto& [name, value] : kParameters) parameters.emplace_back(name, value);
  return {BENCH_CURL, times, UserAgent(), std::string(kHost) + "/" + kPath, DeviceForm(parameters)};
}

}  // namespace

void AddRequestRows(Table& table, const Cloud& cloud) {
  const auto fifty = BareClient("50"), one = BareClient("1");
  const auto run = [&](const std::vector<std::string>& command) {
    return [&cloud, command] {
      cloud.TrustAll();
      return RunProgram(command);
    };
  };
  const auto sendWithOneCa = [&] {
    cloud.TrustOnlyOwnCa();
    return RunProgram({BENCH_SEND, "50"});
  };
  const std::vector<Cost> many = Medians(kRounds, {run(fifty), run({BENCH_SEND, "50"}), sendWithOneCa});
  table.Compare("50 requests, CPU: sender / libcurl", Unit::kMilliseconds, many[1].cpu, many[0].cpu, 1.0 / 8);
  table.Compare("50 requests, CPU: sender / sender, bundle of 1", Unit::kMilliseconds, many[1].cpu, many[2].cpu, 1.7);
  const std::vector<Cost> fresh = Medians(kFreshRounds, {run(one), run({BENCH_SEND, "1"})});
  table.Compare("1 request of a fresh process, CPU", Unit::kMilliseconds, fresh[1].cpu, fresh[0].cpu, 1.1);
  table.Compare("1 request of a fresh process, wall", Unit::kMilliseconds, fresh[1].wall, fresh[0].wall, 1.1);
}

}  // namespace bench
