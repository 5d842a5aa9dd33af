// `report`: the report that the scheduled job makes, by hand and with words, or with --dry-run what it would send. That
// there is nothing to report is no error: the command ends with 0 and a note, as the scheduled run ends with 0.
#include <varnkivo/user.h>

#include <cstdio>
#include <memory>

#include "command_line.h"
#include "cron_schedule.h"
#include "device_files.h"
#include "output.h"
#include "report_plan.h"
#include "report_run.h"
#include "text.h"

namespace kivotool {
namespace {

using Kind = ReportOutcome::Kind;

struct ReportOptions {
  bool dryRun = false, json = false;
};

void PrintHindrance(Kind kind) {
  if (kind == Kind::kNobody) std::fputs("varnkivo: Nothing to report: nobody is signed in.\n", stderr);
  if (kind == Kind::kSwitchedOff)
    std::fputs("varnkivo: Nothing to report: \"kivo_disable_report\" in /etc/varninfo.conf is \"yes\".\n", stderr);
}

/// An accepted report writes the job anew, and the library does not tell where that fails.
void PrintMissingJob() {
  if (WhatHinders(ReadAccountState()) != Kind::kAccepted) return;  // there should be none
  const std::string schedule = WithRecord([] { return varnkivo::User().GetReportCronTimestring(); });
  const char* perhaps = HasFiveFields(schedule) ? " could not be written to /etc/cron.d/kivo." : " cannot be used.";
  std::fprintf(stderr, "varnkivo: No job makes the next report: the schedule %s%s\n", QuotedInBrief(schedule).c_str(),
               perhaps);
}

void Print(const ReportOutcome& outcome, const AccountState& state, bool json) {
  if (!json) {
    PrintHindrance(outcome.kind);
    const std::string& who = state.email.empty() ? state.userId : state.email;
    if (outcome.kind != Kind::kAccepted) return;
    std::printf("Reported as %s\n", Printable(who).c_str());
    if (ReadJobLine().empty()) PrintMissingJob();
    return;
  }
  Json::Value document = NewDocument();
  document["result"] = KindName(outcome.kind);
  document["email"] = TextOrNull(outcome.kind == Kind::kNobody ? "" : state.email);
  document["job"] = TextOrNull(ReadJobLine());
  PrintDocument(document);
}

Exit RunReport(const ReportOptions& options) {
  const Beginning before = Begin();
  if (options.dryRun) {
    PrintReportPlan(before.account, options.json);
    if (!options.json) PrintHindrance(WhatHinders(before.account));
    return kDone;
  }
  const ReportOutcome outcome = MakeReport(before, VoiceFor(options.json));
  if (const std::optional<Failure> failure = FailureOf(outcome)) throw *failure;
  Print(outcome, before.account, options.json);
  return kDone;
}

}  // namespace

void AddReport(Verb app, Invocation& call) {
  auto options = std::make_shared<ReportOptions>();
  const Verb verb = app.AddVerb(call, "report", "Tell the account centre that this device still exists",
                                "varnkivo report\n"
                                "  varnkivo report --dry-run   # what would be sent and changed");
  verb.Flag("--dry-run", options->dryRun, "Only show what would be sent and changed; asks nobody");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunReport(*options); };
  });
}

}  // namespace kivotool
