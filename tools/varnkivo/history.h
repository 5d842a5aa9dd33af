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

struct History {
  LastReport report;
  ForcedSignOut signOut;
};

/// Where a failing write is told: a scheduled run and JSON mode keep stderr for themselves.
enum class Voice { kStderr, kLog };
inline Voice VoiceFor(bool json) { return json ? Voice::kLog : Voice::kStderr; }

/// Empty where there is no file, or none that can be read as one.
History ReadHistory();
/// Changes the file under a lock between processes. Never throws: a failure is one line where `voice` says.
void ChangeHistory(const std::function<void(History&)>& change, Voice voice) noexcept;

/// True when who was signed in `before` no longer is; then that is noted, with the code of the call that noticed.
bool NoticeSignOut(const AccountState& before, int code, Voice voice);
/// Somebody signed in or out on purpose: an earlier forced sign-out no longer says why nobody is signed in.
void EndSignOutNotice(Voice voice) noexcept;

/// "last_report" and "last_forced_sign_out" of the documents; all null in what never happened.
Json::Value ReportJson(const LastReport& report);
Json::Value SignOutJson(const ForcedSignOut& signOut);
/// Why, in words; what the account centre said stands behind `code`.
const char* SignOutReason(int code);

}  // namespace kivotool
