// Watching and steering a running simulator from outside: HTTP with JSON on a loopback port, for people and scripts.
// Works through the public interface alone, on a thread of its own. It masks nothing and asks nobody who they are:
// every user of the machine who can reach the port can read passwords and tokens of the simulated accounts.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "sim/simulator.h"

namespace kivosim {

class Control {
 public:
  /// Listens on 127.0.0.1; port 0 picks a free one. `afterReset` puts back what "POST /reset" should leave. Throws
  /// std::runtime_error when the port is not to be had. Ends with its destructor; `simulator` must live longer.
  Control(Simulator& simulator, std::uint16_t port, std::function<void()> afterReset);
  ~Control();
  std::uint16_t Port() const;
  std::string Url() const;  ///< "http://127.0.0.1:NNNN"

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kivosim
