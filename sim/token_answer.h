// The token endpoint's answer for tokens that were granted, id token included.
#pragma once

#include <json/json.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "sim/account.h"
#include "sim/cloud_state.h"
#include "sim/token_signer.h"
#include "sim/token_store.h"

namespace kivosim {

/// {"access_token", "id_token", "refresh_token", "token_type", "scope", "expires_in"}. `issuedAt`: seconds since the
/// epoch; `host`: name of the identity host that issues.
Json::Value TokenAnswer(const Tokens& tokens, const Account& account, const TokenSigner& signer,
                        const std::string& host, std::int64_t issuedAt);
/// The account on the device, with the scope of a device. Throws std::runtime_error for an unknown account or client.
Grantee GranteeFor(const CloudState& state, const std::string& emailOrUserId, const std::string& clientId,
                   const std::string& serial);
/// Issues a set of tokens `age` old without a sign-in. Throws as GranteeFor.
TokenSet MakeTokenSet(CloudState& state, const std::string& emailOrUserId, const std::string& clientId,
                      const std::string& serial, std::chrono::seconds age);
/// The machine's own wall clock, whatever a test program makes of time().
std::int64_t WallClock();

}  // namespace kivosim
