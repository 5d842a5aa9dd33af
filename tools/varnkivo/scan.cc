// `scan`: the services of this device that are tied to an account already. The library reads the record and the relay's
// configuration and runs the dynamic DNS tool; nobody else is asked and nothing changes.
#include <varnkivo/kivo_exception.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <vector>

#include "account_state.h"
#include "apart.h"
#include "command_line.h"
#include "output.h"
#include "spinner.h"
#include "text.h"
#include "text_table.h"

namespace kivotool {
namespace {

constexpr int kSeconds = 60;  // for two runs of the dynamic DNS tool, which says what stands in a file
constexpr char kAgain[] = "varnkivo scan";

struct Service {
  std::string type, value;
};
using Services = std::map<std::string, std::vector<Service>>;  // by account

/// A program ends its line with a newline, which is no part of what it says.
std::string WithoutNewline(std::string text) { return text.erase(text.find_last_not_of("\r\n") + 1); }

/// What is no text comes from a configuration written by hand, and shows as it stands there.
std::string TextOf(const Json::Value& value) {
  return value.isString() ? WithoutNewline(value.asString()) : value.isNull() ? "" : OneLine(value);
}

Json::Value Ask() {
  Json::Value found;
  VARNKIVOErrSet(KIVO_ERR_SUCCESS);
  if (VARNKIVOAccountScanExisting(found) == 0) return found;
  throw varnkivo::KivoException(static_cast<KIVO_ERRCODE>(VARNKIVOErrGet()), "");
}

/// In a process of its own: the dynamic DNS tool may be anybody's program, and hang.
Json::Value AskWithinLimit(bool json) {
  const Spinner spinner("Looking for services", kSeconds, !json);
  try {
    Json::Value found;
    std::istringstream(RunApart([] { return OneLine(Ask()); }, [] {}, kSeconds)) >> found;
    return found;
  } catch (const TakesTooLong&) {
    throw Failure{kFailed,
                  std::nullopt,
                  "/usr/varn/sbin/varnddnsinfo did not end within " + std::to_string(kSeconds) + " seconds.",
                  Retry::kPerhaps,
                  "Nothing; the program has been ended, and no file was touched.",
                  "/usr/varn/sbin/varnddnsinfo --get-varn-account"};
  } catch (const varnkivo::KivoException& error) {
    throw Explain(error.GetCode(), {Situation::Doing::kReadingRecord, kAgain, "", ""});
  }
}

Services Scan(bool json) {
  ReadAccountState(
      kAgain);  // for a user to whom the record is out of reach the list would lack something without a word
  const Json::Value found = AskWithinLimit(json);
  Services services;
  for (const std::string& account : found.getMemberNames()) {
    const std::string name = WithoutNewline(account);
    if (name.empty()) continue;  // an empty line names nobody
    for (const Json::Value& entry : found[account]["services"])
      services[name].push_back({TextOf(entry["type"]), TextOf(entry["value"])});
  }
  return services;
}

void PrintJson(const Services& services) {
  Json::Value document = NewDocument();
  document["accounts"] = Json::Value(Json::arrayValue);
  for (const auto& [account, list] : services) {
    Json::Value& entry = document["accounts"].append(Json::Value(Json::objectValue));
    entry["account"] = Utf8(account);
    for (const Service& service : list) {
      Json::Value& row = entry["services"].append(Json::Value(Json::objectValue));
      row["type"] = Utf8(service.type);
      row["value"] = TextOrNull(service.value);
    }
  }
  PrintDocument(document);
}

Exit RunScan(bool json) {
  const Services services = Scan(json);
  if (json) {
    PrintJson(services);
    return kDone;
  }
  TextTable table({"Account", "Service", "Value"});
  for (const auto& [account, list] : services)
    for (const Service& service : list) table.Add({account, service.type, service.value});
  table.Print();
  if (services.empty()) std::fputs("varnkivo: No service of this device is tied to an account.\n", stderr);
  return kDone;
}

}  // namespace

void AddScan(Verb app, Invocation& call) {
  app.AddVerb(call, "scan", "List the services of this device that are tied to an account; asks nobody",
              "varnkivo scan")
      .OnUse([&call] { call.run = [&call] { return RunScan(call.json); }; });
}

}  // namespace kivotool
