// Stands in front of the platform: records each call, fails where a test asked for it, else lets the real one run.
#include <varn/crond.h>
#include <varn/platform.h>

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

}  // namespace

#define FAKE(result, name, parameters, arguments)                             \
  result name parameters {                                                    \
    static auto* const next = Next<result parameters>(#name);                 \
    const Planned planned = Plan(#name, Words arguments);                     \
    return planned.instead ? Failure<result>(planned) : Real(next arguments); \
  }

extern "C" {

unsigned int VLIBCErrGet(void) { return gFakeError ? 0x0700u : Next<unsigned int()>("VLIBCErrGet")(); }
const char* VLIBCErrorGetFile(void) { return gFakeError ? "fake.c" : Next<const char*()>("VLIBCErrorGetFile")(); }
int VLIBCErrorGetLine(void) { return gFakeError ? 1 : Next<int()>("VLIBCErrorGetLine")(); }

FAKE(VLIBSzHash*, VLIBCSzHashAlloc, (int capacity), (capacity))
FAKE(int, VLIBCSzHashEnumKey, (const VLIBSzHash* hash, VLIBSzList* keys), (hash, keys))
FAKE(VLIBSzList*, VLIBCSzListAlloc, (int capacity), (capacity))
FAKE(int, VLIBCStrCat, (char** buffer, int* size, const char* text), (buffer, size, text))

FAKE(int, VLIBCFileSetKeyValue, (const char* path, const char* key, const char* value, const char* format),
     (path, key, value, format))

FAKE(int, VLIBCFileLockByFile, (const char* path, int exclusive, int* handle), (path, exclusive, handle))

FAKE(int, VLIBGetOriginalSerialNumber, (char* serial, int size), (serial, size))
FAKE(int, VARNCloudServiceLutokenGenerateToken, (const char* serial, char* token, int size), (serial, token, size))
FAKE(int, VLIBGetSerialNumber, (char* serial, int size), (serial, size))
FAKE(int, VARNLuinfoCloudServiceGetMacAddress, (char* mac, int size), (mac, size))
FAKE(int, VLIBLuinfoUserAgentGet, (const char* product, char* agent, int size), (product, agent, size))

FAKE(int, VARNCloudServiceGetApiKey, (char* key, int create), (key, create))
FAKE(int, VARNCloudServiceRegisterApiKey, (char* key), (key))
FAKE(int, VARNCloudServiceActionHandler, (int action), (action))
FAKE(int, VARNCloudServiceGetErrorCode, (void), ())

FAKE(int, VARNZoneGet, (char* zone, int size, int* needed), (zone, size, needed))
FAKE(int, VARNZoneGetInfo, (const char* zone, VLIBSzHash* info), (zone, info))
FAKE(int, VARNSysNotifySendNotifiction, (const char* tag, const VLIBSzHash* params), (tag, params))
FAKE(int, VARNLogSet1,
     (int type, int level, unsigned int event, const char* a, const char* b, const char* c, const char* d),
     (type, level, event, a, b, c, d))
FAKE(int, VARNScheduleRemove, (const char* command), (command))

FAKE(int, VLIBPluginSDKInit, (const char* product, const char* event, VLIBPlugin** handle, int flags),
     (product, event, handle, flags))
FAKE(int, VLIBPluginAction, (_tag_sdk_plugin_action_ action, VLIBPlugin* handle), (action, handle))

FAKE(pid_t, VLIBCProcFork, (void), ())
FAKE(int, varn_challenge_verifier_no_save, (char* challenge, int challengeSize, char* verifier, int verifierSize),
     (challenge, challengeSize, verifier, verifierSize))

}  // extern "C"

// The scheduler's members, as the plain functions that they are for the linker.
#define FAKE_MEMBER(name, symbol, shown, parameters, arguments)                \
  extern "C" bool name parameters __asm__(symbol);                             \
  bool name parameters {                                                       \
    static auto* const next = Next<bool parameters>(symbol);                   \
    const Planned planned = Plan(shown, "");                                   \
    if (planned.instead) gFakeError = true;                                    \
    return planned.instead ? planned.result.value_or(0) != 0 : next arguments; \
  }
FAKE_MEMBER(FakeSave, "_ZN4VARN9VARNCrond13ConfigManager4SaveERKN4Json5ValueE", "ConfigManager::Save",
            (void* self, const void* job), (self, job))
FAKE_MEMBER(FakeRemove, "_ZN4VARN9VARNCrond13ConfigManager6RemoveEv", "ConfigManager::Remove", (void* self), (self))
