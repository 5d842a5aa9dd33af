// Translates library codes into the tool's exit codes. No state. A library code that is in no row is an ordinary
// failure, so that a newer library never ends in a code that promises something.
#include "exit_codes.h"

#include <varnkivo/varnkivo.h>

namespace kivotool {
namespace {

struct Row {
  int code;
  Exit exit;
};

constexpr Row kRows[] = {
    {KIVO_ERR_NO_ACCOUNT, kNotSignedIn},
    {KIVO_ERR_AUTH, kRefused},
    {KIVO_ERR_ACCOUNT_UNVERIFIED, kRefused},
    {KIVO_ERR_ACCOUNT_NOT_FOUND, kRefused},
    {KIVO_ERR_SEND, kUnreachable},
    {KIVO_ERR_RESPONSE, kUnreachable},
    {KIVO_ERR_NETWORK, kUnreachable},
    {KIVO_ERR_TOKEN, kNotSignedIn},
    {KIVO_ERR_SYSTEM, kPermission},
    {KIVO_ERR_SERIAL, kNotProvisioned},
    {KIVO_ERR_MAC, kNotProvisioned},
    {KIVO_ERR_APIKEY_NOT_FOUND, kNotProvisioned},
    {KIVO_ERR_APIKEY_EXPIRED, kNotProvisioned},
    {KIVO_ERR_INVALID_MACHINE, kNotProvisioned},
};

}  // namespace

Exit ExitFromLibrary(int code, const std::string& text, Caller caller) {
  if (code == KIVO_ERR_TOKEN && text.rfind("Failed to lock file", 0) == 0) return kBusy;
  if (code == KIVO_ERR_SUCCESS && caller == Caller::kQuery) return kBusy;
  for (const Row& row : kRows) {
    if (row.code == code) return row.exit;
  }
  return kFailed;
}

const char* ExitName(Exit exit) {
  switch (exit) {
    case kDone:
      return "done";
    case kFailed:
      return "failed";
    case kUsage:
      return "usage";
    case kNotSignedIn:
      return "not_signed_in";
    case kRefused:
      return "refused";
    case kUnreachable:
      return "unreachable";
    case kBusy:
      return "busy";
    case kPermission:
      return "permission";
    case kNotProvisioned:
      return "not_provisioned";
    case kAlready:
      return "already";
    case kNotRunnable:
      return "not_runnable";
    case kNoProgram:
      return "no_program";
    case kInterrupted:
      return "interrupted";
  }
  return "failed";
}

}  // namespace kivotool
