// Memory that runs out for the library alone: an allocation counts when the nearest frame outside of libc and libstdc++
// is libvarnkivo's. The count is shared with forked children.
#pragma once

#include <sys/mman.h>

#include <new>
#include <string>

namespace faults {

/// A new object that this process shares with the children it makes from now on; it stays for good.
template <class T>
T& NewShared() {
  void* const page = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) throw std::bad_alloc();
  return *new (page) T{};
}

/// Puts the count to 0; the `failing`-th allocation from now on, in this process or a child of it, fails (0: none).
void FailAllocation(int failing);
int AllocationCount();  ///< since then
/// The library's functions that wanted the memory it was refused, the innermost and two of its callers, inlined ones
/// too, with files; needs debug information.
std::string FailedAllocation();

}  // namespace faults
