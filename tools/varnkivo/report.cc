// `report`: the report that the scheduled job makes, by hand and with words, or with --dry-run what it would send. That
// there is nothing to report is no error: the command ends with 0 and a note, as the scheduled run ends with 0.
#include <cstdio>
#include <memory>

#include "command_line.h"
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

void Print(const ReportOutcome& outcome, const AccountState& state, bool json) {
  if (!json) {
    PrintHindrance(outcome.kind);
    const std::string& who = state.email.empty() ? state.userId : state.email;
    if (outcome.kind == Kind::kAccepted) std::printf("Reported as %s\n", Printable(who).c_str());
    return;
  }
  Json::Value document = NewDocument();
  document["result"] = KindName(outcome.kind);
  document["email"] = TextOrNull(state.email);
  PrintDocument(document);
}

Exit RunReport(const ReportOptions& options) {
  const AccountState before = ReadAccountState();
  if (options.dryRun) {
    PrintReportPlan(before, options.json);
    if (!options.json) PrintHindrance(WhatHinders(before));
    return kDone;
  }
  const ReportOutcome outcome = MakeReport(before, VoiceFor(options.json));
  if (const std::optional<Failure> failure = FailureOf(outcome)) throw *failure;
  Print(outcome, before, options.json);
  return kDone;
}

}  // namespace

void AddReport(CLI::App& app, Invocation& call) {
  auto options = std::make_shared<ReportOptions>();
  CLI::App* verb = AddVerb(app, call, "report", "Tell the account centre that this device still exists",
                           "varnkivo report\n"
                           "  varnkivo report --dry-run   # what would be sent and changed");
  verb->add_flag("--dry-run", options->dryRun, "Only show what would be sent and changed; asks nobody");
  verb->callback([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunReport(*options); };
  });
}

}  // namespace kivotool
