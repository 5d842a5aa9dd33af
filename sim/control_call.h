// What the calls of the control interface have in common: how one is written down in a table, and how it reads its
// body. A call that does not understand its body throws std::runtime_error and has changed nothing.
#pragma once

#include <json/json.h>

#include <functional>
#include <string>
#include <vector>

#include "sim/json_members.h"
#include "sim/message.h"
#include "sim/simulator.h"

namespace kivosim {

struct Call {
  Simulator& simulator;
  const Request& request;
  const std::function<void()>& afterReset;
};

struct ControlCall {
  const char* method;
  const char* path;
  Json::Value (*answer)(const Call&);
};

/// The calls that change or remove an account, or say how many there may be.
const std::vector<ControlCall>& AccountCalls();
/// The calls about tokens and about hosts that are down.
const std::vector<ControlCall>& TokenCalls();

Json::Value Done();  ///< {"ok":true}
/// The text member `name`, which must be there.
std::string TakeText(JsonMembers& members, const std::string& name);
/// The one of "email" and "user_id" that is there.
std::string TakeAccount(JsonMembers& members);

}  // namespace kivosim
