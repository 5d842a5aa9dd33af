// The calls of the control interface, apart from how they are carried.
#pragma once

#include <functional>

#include "sim/message.h"
#include "sim/simulator.h"

namespace kivosim {

/// Answers one call: 200 with JSON, 400 with {"error"} for a call that is not understood, 404, 405.
Response AnswerControl(Simulator& simulator, const Request& request, const std::function<void()>& afterReset);

}  // namespace kivosim
