// Memory that runs out for the library alone: an allocation counts when the nearest frame outside of libc and libstdc++
// is libvarnkivo's. The count is shared with forked children.
#pragma once

#include <string>

namespace faults {

/// Puts the count to 0; the `failing`-th allocation from now on, in this process or a child of it, fails (0: none).
void FailAllocation(int failing);
int AllocationCount();  ///< since then
/// The library's functions that wanted the memory it was refused, the innermost and two of its callers, inlined ones
/// too, with files; needs debug information.
std::string FailedAllocation();

}  // namespace faults
