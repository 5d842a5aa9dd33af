// `paths`: the files that belong to the sign-in, and whether they are there. Looks only; asks nobody. The rows are the
// documented ones: a file that programs must not rely on is not listed.
#include "device_files.h"

#include <cstdio>

#include "command_line.h"
#include "history.h"
#include "output.h"

namespace kivotool {
namespace {

struct Place {
  const char* name;  // a key of the JSON document
  const char* path;
  const char* purpose;
};

constexpr Place kPlaces[] = {
    {"record", kRecordPath, "the account record; secret"},
    {"job", kJobPath, "the scheduled report"},
    {"history", kHistoryPath, "the last report and the last forced sign-out"},
    {"api_key", "/usr/varn/etc/varnholt-account/private/api_key", "the device's API key; secret"},
    {"query_lock", "/tmp/account_query_info.lock", "held while the account centre is asked"},
    {"settings", "/etc/varninfo.conf", "language, and kivo_disable_report"},
    {"server_choice", "/etc.defaults/varninfo.conf", "varnpkg_server: production or test"},
    {"device_facts", "/usr/varn/etc/host.conf", "the device: serial=\"...\" and mac=\"...\""},
    {"plugins", "/usr/varn/lib/plugins/kivo", "what runs at sign-in and sign-out"},
    {"events", "/usr/varn/var/log/events.jsonl", "the event log"},
    {"notifications", "/usr/varn/var/log/notifications.jsonl", "notifications sent"},
    {"trusted_cas", "/etc/ssl/certs/ca-certificates.crt", "who may vouch for the hosts"},
};

void PrintJson() {
  Json::Value document = NewDocument();
  for (const Place& place : kPlaces) {
    const FileFacts facts = LookAt(place.path);
    Json::Value& entry = document["paths"][place.name];
    entry["path"] = place.path;
    entry["purpose"] = place.purpose;
    entry["exists"] = facts.known ? Json::Value(facts.exists) : Json::Value();
  }
  PrintDocument(document);
}

void PrintText() {
  for (const Place& place : kPlaces) {
    const FileFacts facts = LookAt(place.path);
    const char* there = !facts.known ? "?" : facts.exists ? "+" : "-";
    std::printf("%s %-50s %s\n", there, place.path, place.purpose);
  }
}

Exit RunPaths(bool json) {
  if (json)
    PrintJson();
  else
    PrintText();
  return kDone;
}

}  // namespace

void AddPaths(Verb app, Invocation& call) {
  app.AddVerb(call, "paths", "List the files of the sign-in: + there, - not there, ? out of sight; asks nobody",
              "varnkivo paths --json | jq -r .paths.record.path")
      .OnUse([&call] { call.run = [&call] { return RunPaths(call.json); }; });
}

}  // namespace kivotool
