// The control calls that change one account in place or take it away, and the one about how many a device may register.
// A change is read as a whole before any of it is made.
#include "sim/account_json.h"
#include "sim/control_call.h"
#include "sim/json_text.h"

namespace kivosim {
namespace {

Account Changed(const Account& account, const Json::Value& changes) {
  Json::Value json = AccountToJson(account);
  for (const std::string& name : changes.getMemberNames()) {
    json[name] = changes[name];
    if (changes[name].isNull()) json.removeMember(name);
  }
  Account changed = AccountFromJson(json);
  if (!json.isMember("realname_validation_pass")) changed.realnameValidationPass.reset();
  return changed;
}

/// Next to a user id, "email" is one of the changes.
Json::Value PostChangeAccount(const Call& call) {
  const Json::Value changes = ParseJson(call.request.body);
  JsonMembers members(changes);
  const std::string which = TakeText(members, members.Has("user_id") ? "user_id" : "email");
  if (!call.simulator.ChangeAccount(which, [&](Account& account) { account = Changed(account, changes); }))
    throw std::runtime_error("no such account");
  return Done();
}

Json::Value PostRemoveAccount(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  const std::string which = TakeAccount(members);
  members.End();
  if (!call.simulator.RemoveAccount(which)) throw std::runtime_error("no such account");
  return Done();
}

Json::Value PostAccountLimit(const Call& call) {
  JsonMembers members(ParseJson(call.request.body));
  std::uint64_t limit = 0;
  members.Require("limit");
  members.Take("limit", limit);
  members.End();
  call.simulator.SetAccountLimit(limit);
  return Done();
}

}  // namespace

const std::vector<ControlCall>& AccountCalls() {
  static const auto& calls = *new const std::vector<ControlCall>{{"POST", "/change-account", PostChangeAccount},
                                                                 {"POST", "/remove-account", PostRemoveAccount},
                                                                 {"POST", "/account-limit", PostAccountLimit}};
  return calls;
}

}  // namespace kivosim
