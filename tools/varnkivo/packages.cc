// `packages`: who on this device has tokens, how old they are, and how old what is cached about each package is. Looks
// at files only: asks nobody, waits for nothing, and shows no token.
#include <cstdio>
#include <ctime>

#include "command_line.h"
#include "output.h"
#include "package_files.h"
#include "text.h"
#include "text_table.h"

namespace kivotool {
namespace {

using Kind = ConfigurationState::Kind;

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kNone:
      return "none";
    case Kind::kFresh:
      return "fresh";
    case Kind::kStale:
      return "stale";
    case Kind::kIgnored:
      return "ignored";
  }
  return "ignored";
}

Json::Value ClientJson(const std::string& name, std::int64_t now) {
  Json::Value out(Json::objectValue);
  const bool device = name == kDeviceClient;
  out["name"] = Utf8(name);
  out["device"] = device;
  out["token"] = TokenJson(ReadTokenState(name), now);
  Json::Value& configuration = out["configuration"];
  if (device) return out;  // it has a template instead
  const ConfigurationState state = ReadConfigurationState(name, now);
  configuration["path"] = Utf8(ConfigurationPath(name));
  configuration["state"] = KindName(state.kind);
  SetTime(configuration, "cached", state.cachedAt);
  return out;
}

std::string ConfigurationText(const std::string& name, std::int64_t now) {
  const ConfigurationState state = ReadConfigurationState(name, now);
  switch (state.kind) {
    case Kind::kNone:
      return "none cached";
    case Kind::kIgnored:
      return "ignored: not readable, or somebody else may have put it there";
    case Kind::kFresh:
      return "cached " + Ago(state.cachedAt, now);
    case Kind::kStale:
      return "stale, cached " + Ago(state.cachedAt, now);
  }
  return "";
}

void PrintTable(const std::vector<std::string>& names, std::int64_t now) {
  TextTable table({"NAME", "TOKEN", "CONFIGURATION"});
  for (const std::string& name : names) {
    const bool device = name == kDeviceClient;
    table.Add({device ? name + " (the device)" : name, TokenText(ReadTokenState(name), now),
               device ? "-" : ConfigurationText(name, now)});
  }
  table.Print();
}

Exit RunPackages(bool json) {
  const std::int64_t now = std::time(nullptr);
  const std::vector<std::string> names = ClientsWithTokens();
  if (json) {
    Json::Value document = NewDocument();
    Json::Value& list = document["packages"] = Json::Value(Json::arrayValue);
    for (const std::string& name : names) list.append(ClientJson(name, now));
    PrintDocument(document);
  } else if (names.empty()) {
    std::fprintf(stderr, "varnkivo: Neither the device nor a package has a token.\n");
  } else {
    PrintTable(names, now);
  }
  return kDone;
}

}  // namespace

void AddPackages(Verb app, Invocation& call) {
  app.AddVerb(call, "packages", "List the packages that have tokens, with the tokens' ages; asks nobody",
              "varnkivo packages --json | jq -r '.packages[] | select(.device | not) | .name'")
      .OnUse([&call] { call.run = [&call] { return RunPackages(call.json); }; });
}

}  // namespace kivotool
