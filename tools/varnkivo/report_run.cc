// Lets the library report, and compares the record before and after: a refused report signs the device out, and so can
// the renewal of the token that follows an accepted one. Touches the history file.
#include "report_run.h"

#include <varn/platform.h>
#include <varnkivo/varnkivo.h>

#include <cstring>
#include <ctime>

#include "spinner.h"
#include "token_state.h"

namespace kivotool {
namespace {

using Kind = ReportOutcome::Kind;

constexpr int kSeconds = 3 * 120 + 2 + 30 + 5 * 30;  // the report, then a token's lock and requests, or the sign-out's

void Remember(const ReportOutcome& outcome, std::int64_t started, Voice voice) {
  ChangeHistory(
      [&](History& history) {
        history.report = {std::time(nullptr), outcome.kind == Kind::kAccepted, outcome.code};
        // not one that another process has noticed in the meantime
        if (outcome.kind == Kind::kAccepted && history.signOut.time < started) history.signOut.current = false;
      },
      voice);
}

/// Whether the report, once accepted, asks for another token; only that can sign the device out then.
bool TokenIsDue() {
  return std::strcmp(TokenStateName(ReadTokenState(kDeviceClient), std::time(nullptr)), "valid") != 0;
}

bool CanMeanSignOut(const ReportOutcome& outcome, bool tokenWasDue) {
  if (outcome.kind == Kind::kAccepted) return tokenWasDue;
  return outcome.code == KIVO_ERR_AUTH || outcome.code == KIVO_ERR_ACCOUNT_NOT_FOUND;
}

Kind Send() {
  VARNKIVOErrSet(KIVO_ERR_SUCCESS);
  if (VARNKIVOReportInfo() != 0) return Kind::kFailed;
  // Well ended, with this code: somebody signed out before anything was sent.
  return VARNKIVOErrGet() == KIVO_ERR_NO_ACCOUNT ? Kind::kNobody : Kind::kAccepted;
}

}  // namespace

Kind WhatHinders(const AccountState& state) {
  if (state.signIn != SignIn::kSignedIn) return Kind::kNobody;
  const bool off = VLIBCFileCheckKeyValue("/etc/varninfo.conf", "kivo_disable_report", "yes") == 1;
  return off ? Kind::kSwitchedOff : Kind::kAccepted;
}

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kAccepted:
      return "accepted";
    case Kind::kNobody:
      return "nobody_signed_in";
    case Kind::kSwitchedOff:
      return "switched_off";
    case Kind::kFailed:
      return "failed";
  }
  return "failed";
}

ReportOutcome MakeReport(const Beginning& before, Voice voice) {
  ReportOutcome outcome{WhatHinders(before.account), KIVO_ERR_SUCCESS, SignOut::kNone};
  if (outcome.kind != Kind::kAccepted) return outcome;
  const std::int64_t started = std::time(nullptr);
  const bool tokenWasDue = TokenIsDue();
  {
    const Spinner spinner("Reporting", kSeconds, voice == Voice::kStderr);
    outcome.kind = Send();
  }
  if (outcome.kind == Kind::kNobody) return outcome;
  const bool accepted = outcome.kind == Kind::kAccepted;
  if (!accepted) outcome.code = VARNKIVOErrGet();
  Remember(outcome, started, voice);
  const int code = accepted ? KIVO_ERR_TOKEN : outcome.code;
  outcome.signOut = NoticeSignOut(before, code, CanMeanSignOut(outcome, tokenWasDue), voice);
  return outcome;
}

std::optional<Failure> FailureOf(const ReportOutcome& outcome) {
  if (outcome.kind == Kind::kAccepted && outcome.signOut == SignOut::kForced) {
    Failure failure = NotSignedInFailure();
    failure.libraryCode = KIVO_ERR_TOKEN;
    failure.cause = "The report was accepted, but the device's token was refused: it has been signed out.";
    return failure;
  }
  if (outcome.kind != Kind::kFailed) return std::nullopt;
  Failure failure = Explain(outcome.code, {Situation::Doing::kReport, "varnkivo report", "", ""});
  if (outcome.signOut == SignOut::kForced) {
    failure.deviceNext = "It has been signed out, and stays so until someone signs in.";
  } else if (outcome.signOut == SignOut::kOther) {
    failure.deviceNext = "Somebody signed it out in the meantime; it reports nothing until someone signs in.";
    failure.retry = Retry::kNo;
    failure.run = "varnkivo login";
  } else if (failure.exit == kRefused) {  // the account centre refused the sign-out too, or could not be reached
    failure.deviceNext = "It stays signed in, and is refused again with each report.";
    failure.run = "varnkivo logout --local";
  }
  return failure;
}

}  // namespace kivotool
