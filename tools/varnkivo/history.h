// What the library does not keep: how the last report ended, and when and why the device was last signed out by force.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <functional>
#include <string>

#include "account_state.h"

namespace kivotool {

constexpr char kHistoryPath[] = "/usr/varn/var/lib/varnkivo/history.json";

struct LastReport {
  std::int64_t time = 0;  ///< seconds since the epoch; 0: there was none
  bool accepted = false;
  int code = 0;  ///< the library's
};

struct ForcedSignOut {
  std::int64_t time = 0;  ///< when it was noticed; 0: there was none
  int code = 0;
  std::string email;     ///< of the account that was signed in
  bool current = false;  ///< nobody has signed in or out with this tool since
};

/// A `logout` with this tool.
struct OwnSignOut {
  std::int64_t time = 0;   ///< 0: there was none
  std::int64_t count = 0;  ///< tells apart two within a second, and whatever the clock does

  bool operator==(const OwnSignOut& other) const { return time == other.time && count == other.count; }
};

struct History {
  LastReport report;
  ForcedSignOut signOut;
  OwnSignOut ownSignOut;
};

/// What an operation that may end the sign-in starts from.
struct Beginning {
  AccountState account;
  OwnSignOut ownSignOut;  ///< the last one by then
};
Beginning Begin(const std::string& again = "");

/// Whether who was signed in still is.
enum class SignOut {
  kNone,
  kForced,  ///< the account centre's answer ended the sign-in
  kOther,   ///< somebody signed out meanwhile
};

/// Where a failing write is told: a scheduled run and JSON mode keep stderr for themselves.
enum class Voice { kStderr, kLog };
inline Voice VoiceFor(bool json) { return json ? Voice::kLog : Voice::kStderr; }

/// Empty where there is no file, or none that can be read as one.
History ReadHistory();
/// Changes the file under a lock between processes. Never throws: a failure is one line where `voice` says.
void ChangeHistory(const std::function<void(History&)>& change, Voice voice) noexcept;

/// Looks whether who was signed in `before` still is. Only with `forcing` (the call failed as it does when the account
/// centre ends a sign-in), and where nobody signed out with this tool since, is it a forced one; it is noted then, with
/// the `code` of the call.
SignOut NoticeSignOut(const Beginning& before, int code, bool forcing, Voice voice);
/// Somebody signed in on purpose: an earlier forced sign-out no longer says why nobody is signed in.
void EndSignOutNotice(Voice voice) noexcept;
/// Somebody signed out on purpose. What others noticed of it since `before`, the history when it began, was no force.
void NoteOwnSignOut(const History& before, Voice voice) noexcept;

/// "last_report" and "last_forced_sign_out" of the documents; all null in what never happened.
Json::Value ReportJson(const LastReport& report);
Json::Value SignOutJson(const ForcedSignOut& signOut);
/// Why, in words; what the account centre said stands behind `code`.
const char* SignOutReason(int code);

}  // namespace kivotool
