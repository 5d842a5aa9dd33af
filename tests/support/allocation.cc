// Memory that runs out: operator new of the whole program, which throws at the allocation that a test has chosen.
#include <cstdlib>
#include <new>

#include "fake_platform.h"
#include "fake_state.h"

namespace testsupport {

thread_local int gFakeDepth = 0;

namespace {

thread_local int gUntilFailure = 0;  // 0: none fails
thread_local bool gFailed = false;

void* Allocate(std::size_t size) {
  if (gUntilFailure > 0 && gFakeDepth == 0 && --gUntilFailure == 0) {
    gFailed = true;
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

void FakePlatform::FailAllocation(int k) {
  gFailed = false;
  gUntilFailure = k;
}

bool FakePlatform::AllocationFailed() {
  gUntilFailure = 0;
  return gFailed;
}

}  // namespace testsupport

void* operator new(std::size_t size) {
  void* const memory = testsupport::Allocate(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return testsupport::Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return testsupport::Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
