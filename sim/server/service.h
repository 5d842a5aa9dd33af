// Everything behind the connections: state, faults, journal and hook. A connection hands it a request and gets back
// what to send; tests and the control interface reach the parts directly. Each part locks for itself.
#pragma once

#include <functional>
#include <mutex>
#include <optional>

#include "sim/cloud_state.h"
#include "sim/fault_queue.h"
#include "sim/journal_log.h"
#include "sim/server/response_plan.h"

namespace kivosim {

using Hook = std::function<std::optional<Response>(const Request&)>;

class Service {
 public:
  explicit Service(ApiKeyPolicy policy) : state(policy) {}

  struct Exchange {
    ResponsePlan plan;
    std::function<void()> onSent;
  };
  /// Answers and journals a request. `entry` comes with what the connection knows: number, name, version, bytes.
  Exchange Serve(const Request& request, JournalEntry entry);
  void SetHook(Hook hook);
  void Reset();

  CloudState state;
  FaultQueue faults;
  JournalLog journal;

 private:
  std::mutex mutex_;
  Hook hook_;
};

}  // namespace kivosim
