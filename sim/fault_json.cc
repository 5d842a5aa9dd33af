// Reads faults from JSON. Enumerations come by name, durations in milliseconds.
#include "sim/fault_json.h"

#include <algorithm>

#include "sim/json_members.h"

namespace kivosim {
namespace {

/// The position of the text member `name` in `names`; `otherwise` when it is absent.
std::size_t TakeName(JsonMembers& members, const std::string& name, const std::vector<std::string>& names,
                     std::size_t otherwise) {
  if (!members.Has(name)) return otherwise;
  std::string text;
  members.Take(name, text);
  const auto found = std::find(names.begin(), names.end(), text);
  if (found == names.end()) throw std::runtime_error("\"" + name + "\" cannot be \"" + text + "\"");
  return static_cast<std::size_t>(found - names.begin());
}

void TakeMilliseconds(JsonMembers& members, const std::string& name, std::chrono::milliseconds& target) {
  std::uint64_t count = static_cast<std::uint64_t>(target.count());
  members.Take(name, count);
  target = std::chrono::milliseconds(count);
}

void TakeSplits(JsonMembers& members, std::vector<std::size_t>& target) {
  for (const Json::Value& offset : members.TakeAny("splits")) {
    if (!offset.isUInt64()) throw std::runtime_error("\"splits\" must be offsets");
    target.push_back(offset.asUInt64());
  }
}

void TakeHeaders(JsonMembers& members, Pairs& target) {
  const Json::Value headers = members.TakeAny("headers");
  if (!headers.isNull() && !headers.isObject()) throw std::runtime_error("\"headers\" must be an object");
  for (const std::string& name : headers.getMemberNames()) target.emplace_back(name, headers[name].asString());
}

Fault ReadFault(JsonMembers& members) {
  Fault fault;
  members.Take("times", fault.times);
  members.Take("skip_handler", fault.skipHandler);
  members.Take("status", fault.status);
  members.Take("body", fault.body);
  members.Take("content_type", fault.contentType);
  TakeHeaders(members, fault.headers);
  members.Take("raw", fault.raw);
  fault.framing = static_cast<Framing>(TakeName(members, "framing", {"length", "chunked", "close"}, 0));
  members.Take("content_length", fault.contentLength);
  members.Take("endless", fault.endless);
  TakeMilliseconds(members, "delay_ms", fault.delay);
  TakeSplits(members, fault.splits);
  TakeMilliseconds(members, "split_pause_ms", fault.splitPause);
  members.Take("drip_bytes", fault.dripBytes);
  TakeMilliseconds(members, "drip_interval_ms", fault.dripInterval);
  members.Take("cut_after", fault.cutAfter);
  members.Take("cut_body_after", fault.cutBodyAfter);
  members.Take("cut_last", fault.cutLast);
  fault.end = static_cast<End>(TakeName(members, "end", {"normal", "close-notify", "fin", "reset", "silence"}, 0));
  return fault;
}

ConnectionFault ReadConnectionFault(JsonMembers& members) {
  ConnectionFault fault;
  const std::size_t kind = TakeName(members, "connection", {"certificate", "reset", "silent", "not-tls"}, 0);
  fault.kind = static_cast<ConnectionFault::Kind>(kind);
  fault.certificate = static_cast<CertificateKind>(TakeName(members, "certificate", CertificateKindNames(), 0));
  members.Take("times", fault.times);
  return fault;
}

}  // namespace

void TakeDownFromJson(Simulator& simulator, const Json::Value& json) {
  JsonMembers members(json);
  members.Require("what");
  std::string what;
  members.Take("what", what);
  const bool plain = members.Left() == 0;
  Fault how = plain ? Fault::Unavailable() : ReadFault(members);
  members.End();
  simulator.TakeDown(what, std::move(how));
}

void QueueFaultFromJson(Simulator& simulator, const Json::Value& json) {
  JsonMembers members(json);
  if (members.Has("connection")) {
    const ConnectionFault fault = ReadConnectionFault(members);
    members.End();
    return simulator.QueueConnectionFault(fault);
  }
  members.Require("path");
  std::string path;
  members.Take("path", path);
  Fault fault = ReadFault(members);
  members.End();
  simulator.QueueFault(path, std::move(fault));
}

}  // namespace kivosim
