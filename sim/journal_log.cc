// The journal's store. Waiting is by the real clock of the condition variable, not by polling.
#include "sim/journal_log.h"

#include <utility>

namespace kivosim {

void JournalLog::Add(JournalEntry entry) {
  const auto age = std::chrono::steady_clock::now() - start_;
  entry.milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(age).count();
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.push_back(std::move(entry));
}

std::vector<JournalEntry> JournalLog::Entries() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

void JournalLog::Clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  entries_.clear();
  connections_ = received_ = sent_ = 0;
}

std::size_t JournalLog::ConnectionOpened() {
  const std::lock_guard<std::mutex> lock(mutex_);
  ++open_;
  ++connections_;
  return ++lastNumber_;
}

void JournalLog::ConnectionClosed() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (--open_ == 0) idle_.notify_all();
}

void JournalLog::CountReceived(std::size_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  received_ += bytes;
}

void JournalLog::CountSent(std::size_t bytes) {
  const std::lock_guard<std::mutex> lock(mutex_);
  sent_ += bytes;
}

std::size_t JournalLog::Connections() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return connections_;
}

std::size_t JournalLog::ApplicationBytes() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return received_;
}

std::size_t JournalLog::BytesSent() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return sent_;
}

bool JournalLog::WaitIdle(std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return idle_.wait_for(lock, timeout, [this] { return open_ == 0; });
}

}  // namespace kivosim
