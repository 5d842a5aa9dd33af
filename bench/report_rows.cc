// One run of the report job, as the scheduled job makes it, against the same requests with libcurl alone: time, memory,
// bytes on the wire, connections. Once with a valid token, and once with one that has to be renewed.
#include <cstdio>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bare_client.h"
#include "process.h"
#include "programs/request.h"
#include "record.h"
#include "rows.h"

namespace bench {
namespace {

constexpr int kRounds = 41;
constexpr int kValid = 0, kExpired = 7200;  // ages of the token in seconds

/// Bytes that the loopback device has carried.
double WireBytes() {
  std::ifstream devices("/proc/net/dev");
  for (std::string line; std::getline(devices, line);) {
    unsigned long long bytes = 0;
    if (std::sscanf(line.c_str(), " lo: %llu", &bytes) == 1) return static_cast<double>(bytes);
  }
  throw std::runtime_error("no loopback device");
}

/// KiB, as a small program sees that starts this one.
double PeakMemory(std::vector<std::string> command) {
  command.insert(command.begin(), BENCH_PEAK);
  return std::stod(OutputOf(command));
}

struct Run {
  Cost cost;
  double memory, bytes, connections;
};

/// Makes a command anew for each run: a refresh token is good for one.
using Candidate = std::function<std::vector<std::string>()>;

Run Measure(const Cloud& cloud, const Candidate& candidate, const Cost& cost) {
  Run run{cost, PeakMemory(candidate()), 0, 0};
  const std::vector<std::string> command = candidate();
  cloud.ClearJournal();
  const double before = WireBytes();
  RunProgram(command);
  run.bytes = WireBytes() - before;
  run.connections = cloud.Connections();
  return run;
}

void AddRows(Table& table, const Cloud& cloud, const std::string& what, int tokenAge, int requests) {
  const std::string agent = UserAgent();
  const std::string form = DeviceForm(
      {{"id", kUserId}, {"auth_key", kAuthKey}, {"timezone", "Etc%2FUTC"}, {"serial_no", kSerial}, {"lu_info", ""}});
  const Candidate tool = [&] {
    PutTokens(cloud.IssueTokens(tokenAge));
    return std::vector<std::string>{BENCH_TOOL, "--report_info"};
  };
  const Candidate bare = [&] {
    std::vector<std::string> command = {BENCH_CURL, "1", agent, std::string(kHost) + "/device/api/report", form};
    if (tokenAge == kExpired) {
      command.push_back(kTokenEndpoint);
      command.push_back(std::string("grant_type=refresh_token&refresh_token=") +
                        RefreshToken(cloud.IssueTokens(tokenAge)) + "&client_id=" + kClientId);
    }
    return command;
  };
  const std::vector<Cost> costs =
      Medians(kRounds, {[&] { return RunProgram(bare()); }, [&] { return RunProgram(tool()); }});
  const Run baseline = Measure(cloud, bare, costs[0]), measured = Measure(cloud, tool, costs[1]);
  table.Compare(what + " / libcurl, CPU", Unit::kMilliseconds, measured.cost.cpu, baseline.cost.cpu, 1.3);
  table.Show("the same, wall", Unit::kMilliseconds, measured.cost.wall, baseline.cost.wall);
  table.Compare("the same, peak memory", Unit::kKilobytes, measured.memory * 1024, baseline.memory * 1024, 1.5);
  table.Show("the same, bytes on the wire", Unit::kKilobytes, measured.bytes, baseline.bytes);
  table.Limit("its connections", Unit::kCount, measured.connections, requests);
}

}  // namespace

void AddReportRows(Table& table, const Cloud& cloud) {
  cloud.TrustAll();
  AddRows(table, cloud, "report job", kValid, 1);
  AddRows(table, cloud, "report job and a renewal", kExpired, 2);
}

}  // namespace bench
