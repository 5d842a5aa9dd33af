// The checks that all requests of the older account interface and of the shop share: method, content type, the exact
// parameters in their exact order, and the device token. What fails here is the client's fault and becomes a complaint.
#pragma once

#include <string>
#include <vector>

#include "sim/cloud_state.h"
#include "sim/handlers/form_request.h"
#include "sim/handlers/routes.h"
#include "sim/message.h"

namespace kivosim {

/// How a code is told to the device.
using CodeWriter = Response (*)(const std::string& code);

/// {"code":CODE}; status 200 for "good", else 400, which is how the account host marks a refusal.
Response CodeAnswer(const std::string& code);
/// The bare word as plain text, with the same status: the two calls that change an account answer so.
Response WordAnswer(const std::string& code);

/// A handler that first checks the request: POST, a form body, "lu_sn", "lu_token", possibly "kivoID" and "kivoPW",
/// then `parameters` in this order and nothing else, "serial_no" (where it is one of them) equal to "lu_sn", the token
/// right. Form faults are answered "badparam", a wrong token "badauth", in the way of `refuse`.
Handler DeviceHandler(std::vector<Parameter> parameters, Handler answer, CodeWriter refuse = CodeAnswer);
/// The same for a GET, with the parameters in its query.
Handler DeviceQueryHandler(std::vector<Parameter> parameters, Handler answer);

/// Whether "id" and "auth_key" belong together on this device: "", or the code to refuse the request with.
std::string CheckHolder(const Request& request, const CloudState& state);

bool IsFlag(const std::string& value);  ///< "true" or "false"

}  // namespace kivosim
