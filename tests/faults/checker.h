// Says of a run with a fault in it how the device was left: as before, as after, partway, or broken and why.
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
  std::string job;                                  // the cron file that it leaves
};

enum class Left { kOld, kNew, kPartway, kBroken };

class Checker {
 public:
  Checker(const Scenario& scenario, const Reference& reference) : scenario_(scenario), reference_(reference) {}

  /// After the run with the fault.
  void CheckFault(const Device& device, const Injection& injection, const Ending& ending, const Told& told);
  /// After the same operation was run again, without one.
  void CheckRepetition(const Device& device, const Told& told);
  void CheckLog(const std::string& log, const Device& device);

  Left Result() const { return complaints_.empty() ? left_ : Left::kBroken; }
  const std::vector<std::string>& Complaints() const { return complaints_; }

 private:
  void CheckProcess(const Injection& injection, const Ending& ending, const Told& told);
  void CheckSuccess(const std::optional<std::string>& record);
  void CheckFiles(const Device& device, bool killed, bool removalFailed);
  void CheckPrivateFile(const std::string& name, const File& file, bool killed, bool removalFailed);
  void Complain(const std::string& what) { complaints_.push_back(what); }

  const Scenario& scenario_;
  const Reference& reference_;
  Left left_ = Left::kOld;
  std::vector<std::string> complaints_;
};

}  // namespace faults
