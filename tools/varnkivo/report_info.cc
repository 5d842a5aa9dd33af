// `--report_info`: what the scheduled job runs. The option, alone and spelt like this, is fixed by jobs already saved
// on devices. Prints nothing on either stream, whatever happens, since cron mails what its jobs print: the exit code,
// the log and the history file tell what came of it.
#include <syslog.h>

#include <exception>
#include <memory>

#include "command_line.h"
#include "report_run.h"

namespace kivotool {
namespace {

Exit RunReportInfo() {
  try {
    const ReportOutcome outcome = MakeReport(Begin(), Voice::kLog);
    const std::optional<Failure> failure = FailureOf(outcome);
    return failure ? failure->exit : kDone;
  } catch (const Failure& failure) {  // the record is out of reach; what fails in the report is logged there
    syslog(LOG_ERR, "report_info:%d %s", __LINE__, failure.cause.c_str());
    return failure.exit;
  } catch (const std::exception& error) {
    syslog(LOG_ERR, "report_info:%d Unexpected: %s", __LINE__, error.what());
    return kFailed;
  }
}

}  // namespace

void AddReportInfo(Verb app, Invocation& call) {
  auto wanted = std::make_shared<bool>(false);
  app.Flag("--report_info", *wanted, "What the scheduled job runs");
  app.OnUse([wanted, app, &call] {
    if (!*wanted) return;
    if (app.HasVerb()) RefuseUsage("--report_info stands alone");
    call.silent = true;
    call.run = RunReportInfo;
  });
}

}  // namespace kivotool
