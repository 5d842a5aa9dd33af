// The control calls, one small function each, found by method and path in a table.
#include "sim/control_paths.h"

#include <iterator>
#include <vector>

#include "sim/account_json.h"
#include "sim/control_call.h"
#include "sim/fault_json.h"
#include "sim/journal_json.h"
#include "sim/json_text.h"

namespace kivosim {

Json::Value Done() {
  Json::Value json;
  json["ok"] = true;
  return json;
}

std::string TakeText(JsonMembers& members, const std::string& name) {
  members.Require(name);
  std::string text;
  members.Take(name, text);
  return text;
}

std::string TakeAccount(JsonMembers& members) { return TakeText(members, members.Has("email") ? "email" : "user_id"); }

namespace {

/// The one text that the body gives under `name`.
std::string OnlyText(const Call& call, const std::string& name) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string text = TakeText(members, name);
  members.End();
  return text;
}

/// Calls `take` for the body, or for each element when it is a list.
template <class Take>
Json::Value ForEach(const Call& call, Take take) {
  const Json::Value body = ParseJson(call.request.body);
  if (!body.isArray()) take(body);
  if (body.isArray())
    for (const Json::Value& element : body) take(element);
  return Done();
}

Json::Value GetJournal(const Call& call) {
  Json::Value list(Json::arrayValue);
  for (const JournalEntry& entry : call.simulator.Journal()) list.append(JournalEntryToJson(entry));
  return list;
}

Json::Value DeleteJournal(const Call& call) {
  call.simulator.ClearJournal();
  return Done();
}

Json::Value GetState(const Call& call) {
  Json::Value state;
  state["port"] = call.simulator.Port();
  state["hosts"] = Json::Value(Json::arrayValue);
  for (const std::string& host : Simulator::Hosts()) state["hosts"].append(host);
  state["accounts"] = Json::Value(Json::arrayValue);
  for (const Account& account : call.simulator.Accounts()) state["accounts"].append(AccountToJson(account));
  state["complaints"] = Json::Value(Json::arrayValue);
  for (const std::string& complaint : call.simulator.Complaints()) state["complaints"].append(complaint);
  state["connections"] = Json::UInt64{call.simulator.Connections()};
  state["bytes_received"] = Json::UInt64{call.simulator.ApplicationBytes()};
  state["bytes_sent"] = Json::UInt64{call.simulator.BytesSent()};
  state["pending_faults"] = Json::UInt64{call.simulator.PendingFaults()};
  return state;
}

Json::Value PostAccounts(const Call& call) {
  return ForEach(call, [&](const Json::Value& json) { call.simulator.AddAccount(AccountFromJson(json)); });
}

Json::Value PostRevoke(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string account = TakeAccount(members);
  members.End();
  if (!call.simulator.Revoke(account)) throw std::runtime_error("no such account");
  return Done();
}

Json::Value PostAccessToken(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string token = TakeText(members, "token"), userId = TakeText(members, "user_id");
  members.End();
  call.simulator.GrantAccessToken(token, userId);
  return Done();
}

Json::Value PostRegisterApiKey(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string serial = TakeText(members, "serial"), key = TakeText(members, "key");
  members.End();
  call.simulator.RegisterApiKey(serial, key);
  return Done();
}

Json::Value PostForgetApiKey(const Call& call) {
  call.simulator.ForgetApiKey(OnlyText(call, "serial"));
  return Done();
}

Json::Value PostExpireApiKey(const Call& call) {
  call.simulator.ExpireApiKey(OnlyText(call, "serial"));
  return Done();
}

Json::Value PostRefuseMachine(const Call& call) {
  call.simulator.RefuseMachine(OnlyText(call, "serial"));
  return Done();
}

Json::Value PostFaults(const Call& call) {
  return ForEach(call, [&](const Json::Value& json) { QueueFaultFromJson(call.simulator, json); });
}

Json::Value DeleteFaults(const Call& call) {
  call.simulator.ClearFaults();
  return Done();
}

Json::Value PostReset(const Call& call) {
  call.simulator.Reset();
  if (call.afterReset) call.afterReset();
  return Done();
}

const ControlCall kCalls[] = {{"GET", "/journal", GetJournal},
                              {"DELETE", "/journal", DeleteJournal},
                              {"GET", "/state", GetState},
                              {"POST", "/accounts", PostAccounts},
                              {"POST", "/revoke", PostRevoke},
                              {"POST", "/access-token", PostAccessToken},
                              {"POST", "/register-api-key", PostRegisterApiKey},
                              {"POST", "/forget-api-key", PostForgetApiKey},
                              {"POST", "/expire-api-key", PostExpireApiKey},
                              {"POST", "/refuse-machine", PostRefuseMachine},
                              {"POST", "/faults", PostFaults},
                              {"DELETE", "/faults", DeleteFaults},
                              {"POST", "/reset", PostReset}};

std::vector<ControlCall> AllCalls() {
  std::vector<ControlCall> calls(std::begin(kCalls), std::end(kCalls));
  calls.insert(calls.end(), AccountCalls().begin(), AccountCalls().end());
  calls.insert(calls.end(), TokenCalls().begin(), TokenCalls().end());
  return calls;
}

Response Answer(int status, const Json::Value& json) { return {status, JsonText(json) + "\n"}; }

Response Refuse(int status, const std::string& why) {
  Json::Value json;
  json["error"] = why;
  return Answer(status, json);
}

}  // namespace

Response AnswerControl(Simulator& simulator, const Request& request, const std::function<void()>& afterReset) {
  static const std::vector<ControlCall> calls = AllCalls();
  bool known = false;
  for (const ControlCall& call : calls) {
    if (request.path != call.path) continue;
    known = true;
    if (request.method != call.method) continue;
    try {
      return Answer(200, call.answer({simulator, request, afterReset}));
    } catch (const std::exception& error) {
      return Refuse(400, error.what());
    }
  }
  return known ? Refuse(405, "not with " + request.method) : Refuse(404, "no such call: " + request.path);
}

}  // namespace kivosim
