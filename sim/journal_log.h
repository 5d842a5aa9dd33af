// Keeps the journal and its counters. Thread-safe. An entry is there before the first byte of its answer leaves, so
// that a client that has its answer finds its request in the journal.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

#include "sim/journal.h"

namespace kivosim {

class JournalLog {
 public:
  void Add(JournalEntry entry);  ///< fills in the time
  std::vector<JournalEntry> Entries() const;
  void Clear();  ///< entries and counters, but not the number of open connections

  std::size_t ConnectionOpened();  ///< the number of the connection: never used twice
  void ConnectionClosed();
  void CountReceived(std::size_t bytes);
  void CountSent(std::size_t bytes);

  std::size_t Connections() const;
  std::size_t ApplicationBytes() const;
  std::size_t BytesSent() const;
  bool WaitIdle(std::chrono::milliseconds timeout) const;

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable idle_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  std::vector<JournalEntry> entries_;
  std::size_t lastNumber_ = 0, open_ = 0;
  std::size_t connections_ = 0, received_ = 0, sent_ = 0;
};

}  // namespace kivosim
