// The question before something that cannot be undone.
#pragma once

#include <string>

namespace kivotool {

/// Returns when `yes` is set or the user at the terminal types y. Throws a usage Failure without a terminal (`again` is
/// the command line that would do it) and an ordinary one for any other answer.
void Confirm(const std::string& question, bool yes, const std::string& again);

}  // namespace kivotool
