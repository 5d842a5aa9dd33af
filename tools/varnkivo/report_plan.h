// What a report would send and change, found out without sending anything.
#pragma once

#include "account_state.h"
#include "report_run.h"

namespace kivotool {

/// Prints the plan of a report for the account in `state`, as text or as a document.
void PrintReportPlan(const AccountState& state, bool json);

}  // namespace kivotool
