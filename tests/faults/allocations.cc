// malloc and its kin stand in front of libc's. operator new needs nothing of its own: libstdc++'s asks malloc, and
// throws where that has none. No lock and no allocation in here; the unwinder needs neither.
#include "allocations.h"

#include <link.h>
#include <sys/mman.h>
#include <unwind.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
}

namespace {

constexpr int kPlaces = 3;  // a template of libstdc++'s may lie in the library, and says nothing of who uses it

enum Owner { kOther, kLibrary, kRuntime };

struct Range {
  std::uintptr_t begin, end;
  Owner owner;
};

struct Shared {
  std::atomic<int> count, failing;
  std::atomic<std::uintptr_t> places[kPlaces];  // in the library, of the one that failed; 0: no more
};

struct Caller {
  Owner owner;
  std::uintptr_t address;
};

Range gRanges[8];
int gRangeCount = 0;
std::uintptr_t gLibraryBase = 0;
std::string gLibraryPath;
Shared* gShared = nullptr;
thread_local bool gBusy = false;

int AddRange(dl_phdr_info* object, std::size_t, void*) {
  const bool program = !*object->dlpi_name;
  const bool library = std::strstr(object->dlpi_name, "/libvarnkivo.so");
  const bool runtime = program || std::strstr(object->dlpi_name, "/libstdc++.so") ||
                       std::strstr(object->dlpi_name, "/libc.so") || std::strstr(object->dlpi_name, "/libgcc_s.so");
  if (library) {
    gLibraryBase = object->dlpi_addr;
    gLibraryPath = object->dlpi_name;
  }
  for (int i = 0; (library || runtime) && i < object->dlpi_phnum && gRangeCount < 8; ++i) {
    const auto& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || !(segment.p_flags & PF_X)) continue;
    const std::uintptr_t begin = object->dlpi_addr + segment.p_vaddr;
    gRanges[gRangeCount++] = {begin, begin + segment.p_memsz, library ? kLibrary : kRuntime};
  }
  return 0;
}

Owner OwnerOf(std::uintptr_t address) {
  for (int i = 0; i < gRangeCount; ++i)
    if (address >= gRanges[i].begin && address < gRanges[i].end) return gRanges[i].owner;
  return kOther;
}

_Unwind_Reason_Code SeeFrame(_Unwind_Context* frame, void* out) {
  auto& caller = *static_cast<Caller*>(out);
  caller.address = _Unwind_GetIP(frame);
  caller.owner = OwnerOf(caller.address);
  return caller.owner == kRuntime ? _URC_NO_REASON : _URC_END_OF_STACK;
}

_Unwind_Reason_Code NoteFrame(_Unwind_Context* frame, void* out) {
  int& noted = *static_cast<int*>(out);
  const std::uintptr_t address = _Unwind_GetIP(frame);
  if (OwnerOf(address) == kLibrary) gShared->places[noted++] = address;
  return noted < kPlaces ? _URC_NO_REASON : _URC_END_OF_STACK;
}

void NotePlaces() {
  for (auto& place : gShared->places) place = 0;
  int noted = 0;
  gBusy = true;
  _Unwind_Backtrace(&NoteFrame, &noted);
  gBusy = false;
}

/// Whether this allocation, asked for from `address`, is the one to fail.
bool Fails(const void* address) {
  if (!gShared || gBusy) return false;
  const auto from = reinterpret_cast<std::uintptr_t>(address);
  Caller caller{OwnerOf(from), from};
  if (caller.owner == kRuntime) {
    gBusy = true;
    _Unwind_Backtrace(&SeeFrame, &caller);
    gBusy = false;
  }
  if (caller.owner != kLibrary || ++gShared->count != gShared->failing) return false;
  NotePlaces();
  errno = ENOMEM;
  return true;
}

}  // namespace

namespace faults {

void FailAllocation(int failing) {
  if (!gShared) {
    dl_iterate_phdr(&AddRange, nullptr);
    void* const page = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    gShared = static_cast<Shared*>(page);  // zero is what both begin with
  }
  gShared->count = 0;
  gShared->failing = failing;
}

int AllocationCount() { return gShared->count; }

std::string FailedAllocation() {
  char block[512];
  std::string command = "addr2line -Cfpie '" + gLibraryPath + "'";
  for (const std::uintptr_t place : gShared->places) {
    if (place == 0) break;
    std::snprintf(block, sizeof block, " %#zx", place - gLibraryBase - 1);  // the call, not what comes after it
    command += block;
  }
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string text;
  while (pipe && std::fgets(block, sizeof block, pipe.get())) text += block;
  return text;
}

}  // namespace faults

extern "C" {
void* malloc(std::size_t size) { return Fails(__builtin_return_address(0)) ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) {
  return Fails(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, std::size_t size) {
  return Fails(__builtin_return_address(0)) ? nullptr : __libc_realloc(memory, size);
}
}
