// Gives up what a set-id bit gave the tool, before it becomes a program that it does not know.
#pragma once

namespace kivotool {

/// Makes the real ids the only ones, for good. False: they could not be given up, and nothing foreign may be run.
bool DropRaisedRights();

}  // namespace kivotool
