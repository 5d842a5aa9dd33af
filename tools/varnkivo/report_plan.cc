// Puts together what a report would be made of: the sender's own two fields, then those of the report, in the order of
// the request. Reads the record, the job file and the device's facts; asks nobody. Secrets are cut to their first
// characters here, so that nothing further on holds one.
#include "report_plan.h"

#include <string.h>
#include <varn/platform.h>
#include <varnkivo/server_info.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "device_files.h"
#include "output.h"
#include "text.h"
#include "token_state.h"

namespace kivotool {
namespace {

using Kind = ReportOutcome::Kind;

constexpr char kPath[] = "device/api/report";
constexpr std::size_t kShown = 10;  // characters of a secret, as in the logs

struct Field {
  const char* name;
  std::string value;
  bool masked;
};

struct File {
  std::string path;
  const char* when;
};

struct Plan {
  Kind kind;
  std::string host, jobLine, schedule;
  std::vector<Field> fields;  // none when nothing would be sent
  std::vector<File> files;
};

struct HashFree {
  void operator()(VLIBSzHash* hash) const noexcept { VLIBCSzHashFree(hash); }
};

Failure Missing(int code) { return Explain(code, {Situation::Doing::kReport, "varnkivo report --dry-run", "", ""}); }

std::string TimeZone() {
  char zone[256] = {};
  int needed = 0;
  if (VARNZoneGet(zone, sizeof zone, &needed) < 0) throw Missing(KIVO_ERR_SUCCESS);
  const std::unique_ptr<VLIBSzHash, HashFree> facts(VLIBCSzHashAlloc(16));
  const char* name = nullptr;
  if (facts && VARNZoneGetInfo(zone, facts.get()) >= 1) name = VLIBCSzHashGetValue(facts.get(), "nameInTZDB");
  if (!name) throw Missing(KIVO_ERR_SYSTEM);
  return name;
}

std::string Masked(std::string secret) {
  const std::string shown = secret.substr(0, kShown) + "...";
  explicit_bzero(secret.data(), secret.size());
  return shown;
}

std::vector<Field> Fields(const AccountState& state) {
  char serial[36] = {}, token[33] = {};
  const std::string zone = TimeZone();
  if (VARNKIVOGetSerialNumber(serial, sizeof serial) < 0) throw Missing(KIVO_ERR_SERIAL);
  if (VARNKIVOGenerateToken("", "", serial, sizeof serial, token, sizeof token) < 0) throw Missing(KIVO_ERR_SEND);
  return {{"lu_sn", serial, false},    {"lu_token", Masked(token), true},
          {"id", state.userId, false}, {"auth_key", Masked(varnkivo::User().GetAuthKey()), true},
          {"timezone", zone, false},   {"serial_no", serial, false},
          {"lu_info", "", false}};
}

Plan Make(const AccountState& state) {
  Plan plan{WhatHinders(state), varnkivo::ServerInfo().GetAccountHost(), ReadJobLine(), "", {}, {}};
  if (plan.kind != Kind::kAccepted) return plan;
  plan.schedule = varnkivo::User().GetReportCronTimestring();
  plan.fields = Fields(state);
  plan.files = {
      {kJobPath, "written anew when the report is accepted, removed when it is refused"},
      {kRecordPath, "changed when the answer brings another schedule, removed when the report is refused"},
      {TokenPath("lum"), "renewed when the token is missing or has expired, removed when the report is refused"},
      {kHistoryPath, "written in any case"}};
  return plan;
}

void PrintJson(const Plan& plan) {
  Json::Value document = NewDocument();
  document["would_send"] = plan.kind == Kind::kAccepted;
  document["hindrance"] = plan.kind == Kind::kAccepted ? Json::Value() : Json::Value(KindName(plan.kind));
  document["host"] = TextOrNull(plan.host);
  document["path"] = kPath;
  document["fields"] = Json::Value(Json::arrayValue);
  for (const Field& field : plan.fields) {
    Json::Value entry(Json::objectValue);
    entry["name"] = field.name;
    entry["value"] = Utf8(field.value);
    entry["masked"] = field.masked;
    document["fields"].append(entry);
  }
  document["job"]["path"] = kJobPath;
  document["job"]["line"] = TextOrNull(plan.jobLine);
  document["job"]["schedule"] = TextOrNull(plan.schedule);
  document["files"] = Json::Value(Json::arrayValue);
  for (const File& file : plan.files) {
    Json::Value entry(Json::objectValue);
    entry["path"] = file.path;
    entry["when"] = file.when;
    document["files"].append(entry);
  }
  PrintDocument(document);
}

void PrintText(const Plan& plan) {
  PrintField("Host", plan.host);
  PrintField("Path", std::string(kPath));
  for (const Field& field : plan.fields) PrintField("Field", std::string(field.name) + "=" + field.value);
  PrintField("Job file", std::string(kJobPath));
  PrintField("Its line", plan.jobLine);
  PrintField("New schedule", plan.schedule + " (unless the answer brings another)");
  for (const File& file : plan.files) PrintField("File", file.path + " (" + file.when + ")");
}

}  // namespace

void PrintReportPlan(const AccountState& state, bool json) {
  const Plan plan = WithRecord([&] { return Make(state); });
  if (json) return PrintJson(plan);
  if (plan.kind == Kind::kAccepted) PrintText(plan);
}

}  // namespace kivotool
