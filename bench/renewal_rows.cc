// Renewals of tokens: the first of a fresh process, and twenty of one, each against the same requests with cpr alone.
#include <string>
#include <vector>

#include "bare_client.h"
#include "process.h"
#include "record.h"
#include "rows.h"

namespace bench {
namespace {

constexpr int kRounds = 15, kFreshRounds = 41;
constexpr int kAge = 7200;  // seconds; more than a token lives

}  // namespace

void AddRenewalRows(Table& table, const Cloud& cloud) {
  cloud.TrustAll();
  cloud.SetTokenLifetime(-1);
  const std::string agent = UserAgent();
  // Each run has a family of tokens of its own, so that none begins with more history than another.
  const auto library = [&](const char* times) {
    return [&cloud, times] {
      PutTokens(cloud.IssueTokens(kAge));
      return RunProgram({BENCH_RENEW, times});
    };
  };
  const auto cpr = [&](const char* times, const char* mode) {
    return [&cloud, times, mode, agent] {
      return RunProgram({BENCH_CPR, times, agent, RefreshToken(cloud.IssueTokens(kAge)), mode});
    };
  };
  const std::vector<Cost> fresh = Medians(kFreshRounds, {cpr("1", "bare"), library("1"), cpr("1", "stored")});
  table.Compare("1 renewal of a fresh process / cpr, CPU", Unit::kMilliseconds, fresh[1].cpu, fresh[0].cpu, 1.1);
  table.Compare("the same, wall", Unit::kMilliseconds, fresh[1].wall, fresh[0].wall, 1.1);
  table.Show("1 renewal of a fresh process / cpr and a file, CPU", Unit::kMilliseconds, fresh[1].cpu, fresh[2].cpu);
  table.Show("the same, wall", Unit::kMilliseconds, fresh[1].wall, fresh[2].wall);
  const std::vector<Cost> many = Medians(kRounds, {cpr("20", "bare"), library("20"), cpr("20", "kept")});
  table.Compare("20 renewals, CPU: AccountPkceService / cpr", Unit::kMilliseconds, many[1].cpu, many[0].cpu, 1.0 / 8);
  table.Show("20 renewals, CPU: cpr with a session kept / cpr", Unit::kMilliseconds, many[2].cpu, many[0].cpu);
  cloud.SetTokenLifetime(3600);
}

}  // namespace bench
