// Faults as JSON, as the control interface takes them. docs/simulator.md lists the members.
#pragma once

#include <json/json.h>

#include "sim/simulator.h"

namespace kivosim {

/// Queues what one object describes: with "path" a fault of that path, with "connection" one of connections. Throws
/// std::runtime_error for what it does not understand; nothing is queued then.
void QueueFaultFromJson(Simulator& simulator, const Json::Value& json);

/// Takes down {"what"}; further members are those of a fault and say what a request for it meets.
void TakeDownFromJson(Simulator& simulator, const Json::Value& json);

}  // namespace kivosim
