// The faults that wait to strike. Thread-safe. A fault with a count stays at the head of its queue until the count is
// used up; one without end (-1) hides everything queued behind it.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "sim/fault.h"

namespace kivosim {

class FaultQueue {
 public:
  void Push(const std::string& path, Fault fault);  ///< a path without a leading "/" gets one; "*" is any path
  void Push(ConnectionFault fault);
  /// What strikes the next request for `path`: from its own queue, else from that of "*".
  std::optional<Fault> Take(const std::string& path);
  std::optional<ConnectionFault> TakeForConnection();
  /// What strikes every request for a host ("identity.kivo.example"), a family of hosts ("identity"), a path (with a
  /// "/" in it) or ("*") anything until it is brought back; goes before the queues and uses nothing of them up.
  void TakeDown(const std::string& what, Fault how);
  void BringBack(const std::string& what);  ///< "": everything
  std::optional<Fault> Outage(const Request& request) const;
  std::size_t Pending() const;  ///< outages not counted
  void Clear();                 ///< outages stay

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::deque<Fault>> byPath_;
  std::deque<ConnectionFault> forConnections_;
  std::map<std::string, Fault> outages_;
};

/// Whether `host` is "NAME.kivo.example" or its test twin.
bool IsOfFamily(const std::string& host, const std::string& name);

/// "device/api/x" and "/device/api/x" are the same path; "*" stays.
std::string NormalPath(const std::string& path);

}  // namespace kivosim
