// What the tool ends with. The numbers are promised to scripts: docs/cli.md lists them, and none is ever given a new
// meaning.
#pragma once

#include <string>

namespace kivotool {

enum Exit : int {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNotSignedIn = 3,
  kRefused = 4,      ///< by the account centre: sign in again
  kUnreachable = 5,  ///< network or server: a retry helps
  kBusy = 6,         ///< another process holds the lock
  kPermission = 7,
  kNotProvisioned = 8,  ///< serial number, MAC address or API key
  kAlready = 9,         ///< it is so already, and --strict was given
  kNotRunnable = 126,   ///< `exec`: as the shell has it
  kNoProgram = 127,     ///< `exec`: as the shell has it
  kInterrupted = 130,
};

/// Which call a library code came from; only the query can run out of time on the lock without setting a code.
enum class Caller { kOther, kQuery };

/// The exit code of a failed library call: `code` from the slot or an exception, `text` that of the exception, if any.
Exit ExitFromLibrary(int code, const std::string& text, Caller caller);

/// "refused", "busy", ...: the word of an exit code in the JSON error.
const char* ExitName(Exit exit);

}  // namespace kivotool
