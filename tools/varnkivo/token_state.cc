// Reads the times in a token file, and nothing else of it. What is in the file beside the times never leaves here.
#include "token_state.h"

#include "json_file.h"
#include "output.h"
#include "text.h"

namespace kivotool {

std::string TokenPath(const std::string& client) { return std::string(kPrivateFolder) + client + "_token.json"; }

TokenState ReadTokenState(const std::string& client) {
  TokenState state;
  const JsonFile file = ReadJsonFile(TokenPath(client));
  state.known = file.known;
  state.exists = file.exists;
  if (!file.known || !file.exists) return state;
  const std::int64_t createdAt = SecondsIn(file.document, "created_at");
  const std::int64_t lifetime = SecondsIn(file.document, "expires_in");
  const auto isTime = [](std::int64_t value) { return value >= INT32_MIN && value <= INT32_MAX; };
  state.known = isTime(createdAt) && isTime(lifetime);  // the library takes no others
  if (!state.known) return state;
  state.createdAt = createdAt;
  state.expiresAt = createdAt + lifetime;
  return state;
}

bool IsUselessSet(const std::string& client, const char* token) {
  const JsonFile file = ReadJsonFile(TokenPath(client));
  if (!file.known || !file.exists) return file.exists;
  for (const char* name : {token, "refresh_token", "created_at", "expires_in"}) {
    const Json::Value& member = file.document[name];
    if (member.isNull() || member.isArray() || member.isObject()) return true;
  }
  return false;
}

const char* TokenStateName(const TokenState& state, std::int64_t now) {
  if (!state.known) return "unknown";
  if (!state.exists) return "none";
  return now > state.expiresAt ? "expired" : "valid";
}

Json::Value TokenJson(const TokenState& state, std::int64_t now) {
  Json::Value out(Json::objectValue);
  out["state"] = TokenStateName(state, now);
  SetTime(out, "created", state.createdAt);
  SetTime(out, "expires", state.createdAt > 0 ? state.expiresAt : 0);
  return out;
}

std::string TokenText(const TokenState& state, std::int64_t now) {
  if (!state.exists) return state.known ? "none" : "out of sight for this user";
  if (!state.known) return "not readable";
  const std::string issued = ", issued " + Ago(state.createdAt, now);
  if (now > state.expiresAt) return "expired, renewed when next asked for" + issued;
  return "valid for " + std::to_string(state.expiresAt - now) + " s" + issued;
}

}  // namespace kivotool
