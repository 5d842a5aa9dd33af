// Queues of faults, per path and for connections.
#include "sim/fault_queue.h"

#include <utility>

namespace kivosim {
namespace {

template <class Entry>
std::optional<Entry> TakeFrom(std::deque<Entry>& queue) {
  while (!queue.empty() && queue.front().times == 0) queue.pop_front();
  if (queue.empty()) return std::nullopt;
  Entry taken = queue.front();
  if (queue.front().times > 0 && --queue.front().times == 0) queue.pop_front();
  return taken;
}

}  // namespace

std::string NormalPath(const std::string& path) {
  return path.empty() || path == "*" || path[0] == '/' ? path : "/" + path;
}

void FaultQueue::Push(const std::string& path, Fault fault) {
  const std::lock_guard<std::mutex> lock(mutex_);
  byPath_[NormalPath(path)].push_back(std::move(fault));
}

void FaultQueue::Push(ConnectionFault fault) {
  const std::lock_guard<std::mutex> lock(mutex_);
  forConnections_.push_back(fault);
}

std::optional<Fault> FaultQueue::Take(const std::string& path) {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::optional<Fault> fault = TakeFrom(byPath_[path]);
  return fault ? fault : TakeFrom(byPath_["*"]);
}

std::optional<ConnectionFault> FaultQueue::TakeForConnection() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return TakeFrom(forConnections_);
}

std::size_t FaultQueue::Pending() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::size_t count = forConnections_.size();
  for (const auto& [path, queue] : byPath_) count += queue.size();
  return count;
}

void FaultQueue::Clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  byPath_.clear();
  forConnections_.clear();
}

}  // namespace kivosim
