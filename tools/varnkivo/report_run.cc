// Lets the library report, and compares the record before and after: a refused report signs the device out, and so can
// the renewal of the token that follows an accepted one. Touches the history file.
#include "report_run.h"

#include <varn/platform.h>
#include <varnkivo/varnkivo.h>

#include <ctime>

#include "spinner.h"

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

ReportOutcome MakeReport(const AccountState& before, Voice voice) {
  ReportOutcome outcome{WhatHinders(before), KIVO_ERR_SUCCESS, false};
  if (outcome.kind != Kind::kAccepted) return outcome;
  const std::int64_t started = std::time(nullptr);
  {
    const Spinner spinner("Reporting", kSeconds, voice == Voice::kStderr);
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    if (VARNKIVOReportInfo() != 0) outcome = {Kind::kFailed, VARNKIVOErrGet(), false};
  }
  Remember(outcome, started, voice);
  const bool accepted = outcome.kind == Kind::kAccepted;
  outcome.signedOut = NoticeSignOut(before, accepted ? KIVO_ERR_TOKEN : outcome.code, voice);
  return outcome;
}

std::optional<Failure> FailureOf(const ReportOutcome& outcome) {
  if (outcome.kind == Kind::kAccepted && outcome.signedOut) {
    Failure failure = NotSignedInFailure();
    failure.libraryCode = KIVO_ERR_TOKEN;
    failure.cause = "The report was accepted, but the device's token was refused: it has been signed out.";
    return failure;
  }
  if (outcome.kind != Kind::kFailed) return std::nullopt;
  Failure failure = Explain(outcome.code, {Situation::Doing::kReport, "varnkivo report", "", ""});
  if (outcome.signedOut) {
    failure.deviceNext = "It has been signed out, and stays so until someone signs in.";
  } else if (failure.exit == kRefused) {
    failure.deviceNext = "It could not sign itself out, and tries again with the next report.";
    failure.run = "varnkivo logout";
  }
  return failure;
}

}  // namespace kivotool
