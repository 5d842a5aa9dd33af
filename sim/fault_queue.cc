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

std::string OutageKey(const std::string& what) { return what.find('/') == std::string::npos ? what : NormalPath(what); }

}  // namespace

bool IsOfFamily(const std::string& host, const std::string& name) {
  return host == name + ".kivo.example" || host == name + "-test.kivo.example";
}

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

void FaultQueue::TakeDown(const std::string& what, Fault how) {
  const std::lock_guard<std::mutex> lock(mutex_);
  outages_[OutageKey(what)] = std::move(how);
}

void FaultQueue::BringBack(const std::string& what) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (what.empty())
    outages_.clear();
  else
    outages_.erase(OutageKey(what));
}

std::optional<Fault> FaultQueue::Outage(const Request& request) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  for (const auto& [what, fault] : outages_)
    if (what == "*" || what == request.path || what == request.host || IsOfFamily(request.host, what)) return fault;
  return std::nullopt;
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
