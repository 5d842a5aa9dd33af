// Accounts as JSON, for the control interface and account files.
#pragma once

#include <json/json.h>

#include "sim/account.h"

namespace kivosim {

/// Reads {"email", "password", "user_id", ...}; these three are required, the rest has the defaults of Account. Throws
/// std::runtime_error for a member that is unknown or of the wrong type.
Account AccountFromJson(const Json::Value& json);
Json::Value AccountToJson(const Account& account);
Json::Value PurchaseToJson(const Purchase& purchase);  ///< as in the answer of the shop's history

}  // namespace kivosim
