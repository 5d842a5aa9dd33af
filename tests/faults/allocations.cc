// malloc and its kin stand in front of libc's. operator new needs nothing of its own: libstdc++'s asks malloc, and
// throws where that has none. No lock and no allocation in here; the unwinder needs neither.
#include "allocations.h"

#include <dlfcn.h>
#include <link.h>
#include <unwind.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
}

namespace {

enum class Owner { kOther, kLibrary, kRuntime };

struct Shared {
  std::atomic<int> count{0}, failing{0};
  // In the library, of the one that failed; 0: no more. Three, as a template of libstdc++'s may lie in the library, and
  // says nothing of who uses it.
  std::array<std::atomic<std::uintptr_t>, 3> places{};
};

Shared* gShared = nullptr;
thread_local bool gBusy = false;

/// The loaded object that an address lies in; null: none.
const link_map* ObjectAt(std::uintptr_t address) {
  dl_find_object found;
  return _dl_find_object(reinterpret_cast<void*>(address), &found) == 0 ? found.dlfo_link_map : nullptr;
}

Owner OwnerOf(std::uintptr_t address) {
  const link_map* const object = ObjectAt(address);
  if (!object) return Owner::kOther;
  if (std::strstr(object->l_name, "/libvarnkivo.so")) return Owner::kLibrary;
  for (const char* name : {"/libstdc++.so", "/libc.so", "/libgcc_s.so"})
    if (std::strstr(object->l_name, name)) return Owner::kRuntime;
  return *object->l_name ? Owner::kOther : Owner::kRuntime;  // this program
}

_Unwind_Reason_Code SeeFrame(_Unwind_Context* frame, void* out) {
  auto& owner = *static_cast<Owner*>(out);
  owner = OwnerOf(_Unwind_GetIP(frame));
  return owner == Owner::kRuntime ? _URC_NO_REASON : _URC_END_OF_STACK;
}

_Unwind_Reason_Code NoteFrame(_Unwind_Context* frame, void* out) {
  std::size_t& noted = *static_cast<std::size_t*>(out);
  const std::uintptr_t address = _Unwind_GetIP(frame);
  if (OwnerOf(address) == Owner::kLibrary) gShared->places[noted++] = address;
  return noted < gShared->places.size() ? _URC_NO_REASON : _URC_END_OF_STACK;
}

void Unwind(_Unwind_Trace_Fn see, void* out) {
  gBusy = true;
  _Unwind_Backtrace(see, out);
  gBusy = false;
}

/// Whether this allocation, asked for from `address`, is the one to fail.
bool Fails(const void* address) {
  if (!gShared || gBusy) return false;
  Owner owner = OwnerOf(reinterpret_cast<std::uintptr_t>(address));
  if (owner == Owner::kRuntime) Unwind(&SeeFrame, &owner);
  if (owner != Owner::kLibrary || ++gShared->count != gShared->failing) return false;
  for (auto& place : gShared->places) place = 0;
  std::size_t noted = 0;
  Unwind(&NoteFrame, &noted);
  errno = ENOMEM;
  return true;
}

}  // namespace

namespace faults {

void FailAllocation(int failing) {
  if (!gShared) gShared = &NewShared<Shared>();
  gShared->count = 0;
  gShared->failing = failing;
}

int AllocationCount() { return gShared->count; }

std::string FailedAllocation() {
  std::string text;
  for (const std::uintptr_t place : gShared->places) {
    const link_map* const library = ObjectAt(place);
    if (!library) break;
    char block[1024];
    std::snprintf(block, sizeof block, "addr2line -Cfpie '%s' %#zx", library->l_name,
                  place - library->l_addr - 1);  // the call, not what comes after it
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(block, "r"), pclose);
    while (pipe && std::fgets(block, sizeof block, pipe.get())) text += block;
  }
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
