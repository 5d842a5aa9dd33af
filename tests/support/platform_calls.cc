// Stands in front of the platform: records each call, fails where a test asked for it, else lets the real one run.
#include <varn/crond.h>
#include <varn/platform.h>

#include <cstdarg>

#include "fake_state.h"

using namespace testsupport;

namespace {

template <class Result>
Result Failure(const Planned& planned) {
  gFakeError = true;
  if constexpr (std::is_pointer_v<Result>)
    return nullptr;
  else
    return static_cast<Result>(planned.result.value_or(-1));
}

template <class Result>
Result Real(Result result) {
  if constexpr (!std::is_pointer_v<Result>) gFakeError = gFakeError && !(result < 0);
  return result;
}

constexpr int kMostArguments = 16;

/// The arguments of a call up to the null, which is stored too.
void Collect(const char* first, va_list rest, const char* (&out)[kMostArguments]) {
  const char* argument = first;
  for (int i = 0; i < kMostArguments - 1 && argument; ++i) {
    out[i] = argument;
    argument = va_arg(rest, const char*);
  }
}

std::string Joined(const char* const (&arguments)[kMostArguments]) {
  std::string out;
  for (const char* const* argument = arguments; *argument; ++argument) out += std::string(",") + *argument;
  return out;
}

}  // namespace

#define FAKE(result, name, parameters, arguments)                                     \
  result name parameters {                                                            \
    const InFake inFake;                                                              \
    static auto* const next = Next<result parameters>(#name);                         \
    const Planned planned = Plan(#name, Words arguments);                             \
    return planned.instead ? Failure<result>(planned) : Real<result>(next arguments); \
  }
#define FAKE_OPEN(result, name, kind, parameters, arguments, succeeded)                     \
  result name parameters {                                                                  \
    const InFake inFake;                                                                    \
    static auto* const next = Next<result parameters>(#name);                               \
    const Planned planned = Plan(#name, Words arguments);                                   \
    result got = planned.instead ? Failure<result>(planned) : Real<result>(next arguments); \
    if (succeeded) CountOpen(kind, 1);                                                      \
    return got;                                                                             \
  }
#define FAKE_CLOSE(result, name, kind, parameter, argument, wasOpen) \
  result name(parameter argument) {                                  \
    const InFake inFake;                                             \
    static auto* const next = Next<result(parameter)>(#name);        \
    if (wasOpen) CountOpen(kind, -1);                                \
    return next(argument);                                           \
  }

extern "C" {

unsigned int VLIBCErrGet(void) { return gFakeError ? 0x0700u : Next<unsigned int()>("VLIBCErrGet")(); }
const char* VLIBCErrorGetFile(void) { return gFakeError ? "fake.c" : Next<const char*()>("VLIBCErrorGetFile")(); }
int VLIBCErrorGetLine(void) { return gFakeError ? 1 : Next<int()>("VLIBCErrorGetLine")(); }

FAKE_OPEN(VLIBSzHash*, VLIBCSzHashAlloc, "hash", (int capacity), (capacity), got != nullptr)
FAKE_CLOSE(void, VLIBCSzHashFree, "hash", VLIBSzHash*, hash, hash != nullptr)
FAKE(int, VLIBCSzHashSetValue, (VLIBSzHash * hash, const char* key, const char* value), (hash, key, value))
FAKE(int, VLIBCSzHashEnumKey, (const VLIBSzHash* hash, VLIBSzList* keys), (hash, keys))
FAKE_OPEN(VLIBSzList*, VLIBCSzListAlloc, "list", (int capacity), (capacity), got != nullptr)
FAKE_CLOSE(void, VLIBCSzListFree, "list", VLIBSzList*, list, list != nullptr)
FAKE(int, VLIBCSzListPush, (VLIBSzList * list, const char* text), (list, text))
FAKE(int, VLIBCStrCat, (char** buffer, int* size, const char* text), (buffer, size, text))

FAKE(int, VLIBCFileGetKeyValue, (const char* path, const char* key, char* value, int size), (path, key, value, size))
FAKE(int, VLIBCFileSetKeyValue, (const char* path, const char* key, const char* value, const char* format),
     (path, key, value, format))
FAKE(int, VLIBCFileCheckKeyValue, (const char* path, const char* key, const char* value), (path, key, value))
FAKE(int, VLIBCFileGetKeys, (const char* path, VLIBSzHash* values, const char* separator), (path, values, separator))

FAKE_OPEN(int, VLIBCFileLockByFile, "lock", (const char* path, int exclusive, int* handle), (path, exclusive, handle),
          got >= 0)
FAKE_CLOSE(int, VLIBCFileUnlockByFile, "lock", int, handle, handle >= 0)

FAKE(int, VLIBGetSerialNumber, (char* serial, int size), (serial, size))
FAKE(int, VLIBGetOriginalSerialNumber, (char* serial, int size), (serial, size))
FAKE(int, VARNLuinfoCloudServiceGetMacAddress, (char* mac, int size), (mac, size))
FAKE(int, VLIBLuinfoUserAgentGet, (const char* product, char* agent, int size), (product, agent, size))

FAKE(int, VARNCloudServiceGetApiKey, (char* key, int create), (key, create))
FAKE(int, VARNCloudServiceRegisterApiKey, (char* key), (key))
FAKE(int, VARNCloudServiceActionHandler, (int action), (action))
FAKE(int, VARNCloudServiceGetErrorCode, (void), ())
FAKE(int, VARNCloudServiceLutokenGenerateToken, (const char* serial, char* token, int size), (serial, token, size))

FAKE(int, VARNZoneGet, (char* zone, int size, int* needed), (zone, size, needed))
FAKE(int, VARNZoneGetInfo, (const char* zone, VLIBSzHash* info), (zone, info))
FAKE(int, VARNSysNotifySendNotifiction, (const char* tag, const VLIBSzHash* params), (tag, params))
FAKE(int, VARNLogSet1,
     (int type, int level, unsigned int event, const char* a, const char* b, const char* c, const char* d),
     (type, level, event, a, b, c, d))
FAKE(int, VARNScheduleRemove, (const char* command), (command))

FAKE_OPEN(int, VLIBPluginSDKInit, "plug-in session",
          (const char* product, const char* event, VLIBPlugin** handle, int flags), (product, event, handle, flags),
          got >= 0)
FAKE(int, VLIBPluginAction, (_tag_sdk_plugin_action_ action, VLIBPlugin* handle), (action, handle))
FAKE_CLOSE(int, VLIBPluginExit, "plug-in session", VLIBPlugin*, handle, handle != nullptr)

FAKE(pid_t, VLIBCProcFork, (void), ())
FAKE(int, varn_challenge_verifier_no_save, (char* challenge, int challengeSize, char* verifier, int verifierSize),
     (challenge, challengeSize, verifier, verifierSize))

int VLIBCExecl(const char* program, int flags, const char* arg, ...) {
  const InFake inFake;
  static auto* const next = Next<int(const char*, int, const char*, ...)>("VLIBCExecl");
  const char* a[kMostArguments] = {};
  va_list rest;
  va_start(rest, arg);
  Collect(arg, rest, a);
  va_end(rest);
  const Planned planned = Plan("VLIBCExecl", Words(program, flags) + Joined(a));
  if (planned.instead) return Failure<int>(planned);
  return Real(next(program, flags, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9], a[10], a[11], a[12],
                   a[13], a[14], nullptr));
}

FILE* VLIBCPopen(const char* program, const char* mode, const char* arg, ...) {
  const InFake inFake;
  static auto* const next = Next<FILE*(const char*, const char*, const char*, ...)>("VLIBCPopen");
  const char* a[kMostArguments] = {};
  va_list rest;
  va_start(rest, arg);
  Collect(arg, rest, a);
  va_end(rest);
  const Planned planned = Plan("VLIBCPopen", Words(program, mode) + Joined(a));
  FILE* const got = planned.instead ? Failure<FILE*>(planned)
                                    : next(program, mode, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9],
                                           a[10], a[11], a[12], a[13], a[14], nullptr);
  if (got) CountOpen("pipe", 1);
  return got;
}
FAKE_CLOSE(int, VLIBCPclose, "pipe", FILE*, pipe, pipe != nullptr)

}  // extern "C"

// The scheduler's members, as the plain functions that they are for the linker.
extern "C" bool FakeSave(void* self, const void* job) __asm__("_ZN4VARN9VARNCrond13ConfigManager4SaveERKN4Json5ValueE");
bool FakeSave(void* self, const void* job) {
  const InFake inFake;
  static auto* const next = Next<bool(void*, const void*)>("_ZN4VARN9VARNCrond13ConfigManager4SaveERKN4Json5ValueE");
  const Planned planned = Plan("ConfigManager::Save", "");
  if (planned.instead) gFakeError = true;
  return planned.instead ? planned.result.value_or(0) != 0 : next(self, job);
}
extern "C" bool FakeRemove(void* self) __asm__("_ZN4VARN9VARNCrond13ConfigManager6RemoveEv");
bool FakeRemove(void* self) {
  const InFake inFake;
  static auto* const next = Next<bool(void*)>("_ZN4VARN9VARNCrond13ConfigManager6RemoveEv");
  const Planned planned = Plan("ConfigManager::Remove", "");
  if (planned.instead) gFakeError = true;
  return planned.instead ? planned.result.value_or(0) != 0 : next(self);
}
