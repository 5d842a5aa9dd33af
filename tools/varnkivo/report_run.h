// One report to the account centre, and what came of it. The scheduled run and the verb share it.
#pragma once

#include <string>

#include "account_state.h"
#include "failure.h"
#include "history.h"

namespace kivotool {

struct ReportOutcome {
  enum class Kind { kAccepted, kNobody, kSwitchedOff, kFailed } kind = Kind::kNobody;
  int code = 0;            ///< the library's, of a report that failed
  bool signedOut = false;  ///< who was signed in before no longer is
};

/// Why no report would be made now: nobody is signed in, or the administrator has switched reports off. kAccepted:
/// nothing stands in its way.
ReportOutcome::Kind WhatHinders(const AccountState& state);
/// "accepted", "nobody_signed_in", "switched_off" or "failed".
const char* KindName(ReportOutcome::Kind kind);

/// Sends the report of the account in `before` and notes in the history what came of it.
ReportOutcome MakeReport(const AccountState& before, Voice voice);
/// What there is to say about an outcome with which the command does not end well; null for the others.
std::optional<Failure> FailureOf(const ReportOutcome& outcome);

}  // namespace kivotool
