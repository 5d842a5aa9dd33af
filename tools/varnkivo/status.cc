// `status`: everything about this device's sign-in at a glance. Reads the record, the job file and the hosts; asks
// nobody and never waits. Being signed out is a state, not an error: the exit code is 0.
#include <varnkivo/server_info.h>
#include <varnkivo/user.h>

#include <cstdio>
#include <ctime>
#include <optional>

#include "account_state.h"
#include "command_line.h"
#include "cron_schedule.h"
#include "device_files.h"
#include "history.h"
#include "output.h"
#include "report_run.h"
#include "text.h"
#include "token_state.h"

namespace kivotool {
namespace {

struct Status {
  AccountState account;
  TokenState token;
  FileFacts record, jobFile;
  std::string jobLine;
  std::optional<std::string> uselessSchedule;  // which the missing job should have had; null: it is not for that
  std::int64_t nextRun = 0;                    // 0: not known
  History history;
  std::string accountHost, identityHost, paymentHost;
};

std::optional<std::string> UselessSchedule(const Status& status) {
  if (!status.jobLine.empty() || WhatHinders(status.account) != ReportOutcome::Kind::kAccepted) return std::nullopt;
  const std::string schedule = varnkivo::User().GetReportCronTimestring();
  return HasFiveFields(schedule) ? std::nullopt : std::optional<std::string>(schedule);
}

Status Gather(std::int64_t now) {
  Status status;
  status.account = ReadAccountState();
  status.token = ReadTokenState(kDeviceClient);
  status.record = LookAt(kRecordPath);
  status.jobFile = LookAt(kJobPath);
  status.jobLine = ReadJobLine();
  status.uselessSchedule = UselessSchedule(status);
  status.nextRun = NextRun(status.jobLine, now);
  status.history = ReadHistory();
  status.history.signOut.current &= status.account.signIn != SignIn::kSignedIn;
  const varnkivo::ServerInfo hosts;
  status.accountHost = hosts.GetAccountHost();
  status.identityHost = hosts.GetIdentityHost();
  status.paymentHost = hosts.GetPaymentHost();
  return status;
}

Json::Value RecordJson(const FileFacts& record) {
  Json::Value out(Json::objectValue);
  out["path"] = kRecordPath;
  out["exists"] = record.known ? Json::Value(record.exists) : Json::Value();
  out["mode"] = TextOrNull(record.mode);
  out["uid"] = record.exists ? Json::Value(record.uid) : Json::Value();
  out["gid"] = record.exists ? Json::Value(record.gid) : Json::Value();
  return out;
}

Json::Value JobJson(const Status& status) {
  Json::Value out(Json::objectValue);
  out["path"] = kJobPath;
  out["exists"] = status.jobFile.known ? Json::Value(status.jobFile.exists) : Json::Value();
  out["line"] = TextOrNull(status.jobLine);
  SetTime(out, "next_run", status.nextRun);
  return out;
}

Json::Value ForcedSignOutJson(const ForcedSignOut& signOut) {
  Json::Value out = SignOutJson(signOut);
  out["cause"] = signOut.time > 0 ? Json::Value(SignOutReason(signOut.code)) : Json::Value();
  return out;
}

void PrintJson(const Status& status, std::int64_t now) {
  const AccountState& account = status.account;
  const bool signedIn = account.signIn == SignIn::kSignedIn;
  Json::Value document = NewDocument();
  document["state"] = SignInName(account.signIn);
  document["signed_in"] = signedIn;
  document["email"] = TextOrNull(account.email);
  document["user_id"] = TextOrNull(account.userId);
  document["activated"] = signedIn && account.lastQuery > 0 ? Json::Value(account.activated) : Json::Value();
  SetTime(document, "last_query", account.lastQuery);
  document["token"] = TokenJson(status.token, now);
  document["record"] = RecordJson(status.record);
  document["job"] = JobJson(status);
  document["last_report"] = ReportJson(status.history.report);
  document["last_forced_sign_out"] = ForcedSignOutJson(status.history.signOut);
  document["hosts"]["account"] = TextOrNull(status.accountHost);
  document["hosts"]["identity"] = TextOrNull(status.identityHost);
  document["hosts"]["payment"] = TextOrNull(status.paymentHost);
  PrintDocument(document);
}

std::string RecordText(const FileFacts& record) {
  const std::string path = kRecordPath;
  if (!record.exists) return path + (record.known ? " (none)" : " (out of sight for this user)");
  return path + " (mode " + record.mode + ", owner " + std::to_string(record.uid) + ":" + std::to_string(record.gid) +
         ")";
}

std::string JobText(const Status& status) {
  const std::string path = kJobPath;
  if (status.uselessSchedule) return "none: the schedule " + QuotedInBrief(*status.uselessSchedule) + " cannot be used";
  return status.jobLine.empty() ? path + " (none)" : path + ": " + status.jobLine;
}

std::string ReportText(const LastReport& report, std::int64_t now) {
  if (report.time <= 0) return "never";
  const std::string result =
      report.accepted ? "accepted" : Explain(report.code, {Situation::Doing::kReport, "", "", ""}).cause;
  return Ago(report.time, now) + ", " + result;
}

void PrintSignOut(const ForcedSignOut& signOut) {
  if (!signOut.current) return;
  const std::string who = signOut.email.empty() ? "" : " (" + Printable(signOut.email) + ")";
  std::printf("Signed out by the account centre %s: %s%s\n", Rfc3339(signOut.time).c_str(), SignOutReason(signOut.code),
              who.c_str());
}

void PrintText(const Status& status, std::int64_t now) {
  const AccountState& account = status.account;
  const bool incomplete = account.signIn == SignIn::kIncomplete;
  PrintField("Signed in", incomplete ? "no (the record is incomplete: sign in again)"
                                     : std::string(account.signIn == SignIn::kSignedIn ? "yes" : "no"));
  PrintSignOut(status.history.signOut);
  PrintField("E-mail", account.email);
  PrintField("User id", account.userId);
  PrintField("Activated", account.lastQuery > 0 ? std::string(account.activated ? "yes" : "no") : "");
  PrintField("Last query", Ago(account.lastQuery, now));
  PrintField("Token", TokenText(status.token, now));
  PrintField("Record", RecordText(status.record));
  PrintField("Report job", JobText(status));
  PrintField("Last report", ReportText(status.history.report, now));
  PrintField("Next report", status.nextRun > 0 ? Rfc3339(status.nextRun) : "");
  PrintField("Account host", status.accountHost);
  PrintField("Identity host", status.identityHost);
  PrintField("Payment host", status.paymentHost);
}

Exit RunStatus(bool json) {
  const std::int64_t now = std::time(nullptr);
  const Status status = WithRecord([now] { return Gather(now); });
  if (json)
    PrintJson(status, now);
  else
    PrintText(status, now);
  return kDone;
}

}  // namespace

void AddStatus(Verb app, Invocation& call) {
  app.AddVerb(call, "status", "Show the sign-in, the record, the report job and the hosts; asks nobody",
              "varnkivo status --json | jq -r .state")
      .OnUse([&call] { call.run = [&call] { return RunStatus(call.json); }; });
}

}  // namespace kivotool
