// The cloud of a test, in its own process on 127.0.0.1:443: one simulator per program, so that the CA which the library
// trusts stays the same, and as new for every Cloud.
#pragma once

#include <string>
#include <vector>

#include "sim/simulator.h"

namespace testsupport {

class Cloud {
 public:
  Cloud() { Sim().Reset(); }
  Cloud(const Cloud&) = delete;
  Cloud& operator=(const Cloud&) = delete;
  ~Cloud() { Sim().Reset(); }

  /// Accounts, faults, journal: cloud->QueueFault("*", kivosim::Fault::Answer(500, "down")).
  kivosim::Simulator* operator->() const { return &Sim(); }
  static kivosim::Simulator& Sim() {
    static kivosim::Simulator* const simulator = [] {
      kivosim::Options options;
      options.plainHttp = true;
      auto* made = new kivosim::Simulator(options);  // lives as long as the process
      made->Start();
      return made;
    }();
    return *simulator;
  }

  /// The complete requests so far; `raw`, `body`, `form` and `query` of each say what was on the wire.
  std::vector<kivosim::Request> Requests(const std::string& path = "") const { return Sim().Requests(path); }
  /// Every request is answered with this, whatever it asks.
  void AnswerAll(int status, const std::string& body) {
    Sim().SetHook([=](const kivosim::Request&) { return kivosim::Response{status, body}; });
  }
};

}  // namespace testsupport
