// The cloud of a test, in its own process on 127.0.0.1:443: one simulator per program, as new for every Cloud.
#pragma once

#include <string>
#include <vector>

#include "sim/simulator.h"

namespace testsupport {

class Cloud {
 public:
  Cloud();
  Cloud(const Cloud&) = delete;
  Cloud& operator=(const Cloud&) = delete;
  ~Cloud();

  /// Accounts, faults, journal: cloud->QueueFault("*", kivosim::Fault::Answer(500, "down")).
  kivosim::Simulator* operator->() const { return &Sim(); }
  static kivosim::Simulator& Sim();

  /// The complete requests so far; `raw`, `body`, `form` and `query` of each say what was on the wire.
  std::vector<kivosim::Request> Requests(const std::string& path = "") const { return Sim().Requests(path); }
  /// Every request is answered with this, whatever it asks.
  void AnswerAll(int status, const std::string& body);
};

}  // namespace testsupport
