// Says of a run with a fault in it whether it left the device broken, and why.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "device.h"
#include "scenarios.h"
#include "tracer.h"

namespace faults {

/// What the process told about itself at its end; in memory that it shares with the tracer.
struct Told {
  bool finished, threw;  // came to its end; an exception came out of the function
  int result;
  uid_t uid;
  gid_t gid;  // effective, after the operation
};

/// The operation without a fault: whatever it passes through is allowed.
struct Reference {
  int result = 0;
  int descriptors = 0;
  std::vector<std::optional<std::string>> records;  // from the old to the new one
  std::string job;                                  // the cron file that it leaves, or finds and removes
};

/// What the process that was struck left, besides files.
struct Outcome {
  Injection injection;
  Ending ending;
  Told told;
  std::string log;
};

/// The access, id and refresh token of a token file, those that are there.
std::vector<std::string> TokensIn(const std::string& content);

class Checker {
 public:
  /// `before`: what the operation found.
  Checker(const Scenario& scenario, const Reference& reference, const State& before)
      : scenario_(scenario), reference_(reference), before_(before) {}

  /// After the run with the fault.
  void CheckFault(const State& now, const Outcome& outcome);
  /// After the same operation was run again, without one. `tokensAreGood`: the cloud accepts those on the device.
  void CheckRepetition(const State& now, const Told& told, bool tokensAreGood);
  /// Whether a kill has left room for a token set behind, which signing out must take away.
  static bool LeavesRoom(const State& now);
  /// After signing out.
  void CheckSignedOut(const State& now, const Told& told);
  /// `given`: secrets of this run alone.
  void CheckLog(const std::string& log, const State& now, std::vector<std::string> given);

  const std::vector<std::string>& Complaints() const { return complaints_; }

 private:
  void CheckRecord(const State& now, const Outcome& outcome);
  void CheckReplacedTokens(const State& now);
  void CheckRemovedTokens(const State& now, const Outcome& outcome);
  void CheckProcess(const Ending& ending, const Told& told);
  void CheckSuccess(const State& now);
  void CheckFile(const std::string& path, const File& file, bool removalFailed);
  void CheckPrivateFile(const std::string& path, const File& file, bool removalFailed);
  bool HasNewTokens(const State& now) const;
  void Complain(const std::string& what) { complaints_.push_back(what); }

  const Scenario& scenario_;
  const Reference& reference_;
  const State& before_;
  bool signedOut_ = false;  // it failed, signed the device out and logged that
  bool ended_ = false;      // the process was ended on purpose, in the midst of its work
  bool failed_ = false;     // it came to its end and may say so
  bool succeeded_ = false;  // it says so
  std::vector<std::string> complaints_;
};

}  // namespace faults
