// Reads the times in a token file, and nothing else of it. What is in the file beside the times never leaves here.
#include "token_state.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "output.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kFolder[] = "/usr/varn/etc/varnholt-account/private/";
constexpr std::size_t kMost = 4u << 20;

/// 0 where it is no number.
std::int64_t Seconds(const Json::Value& document, const char* name) {
  const Json::Value& value = document[name];
  return value.isInt64() ? value.asInt64() : value.isString() ? std::strtoll(value.asCString(), nullptr, 10) : 0;
}

bool Parse(const std::string& text, Json::Value& document) {
  std::istringstream in(text);
  std::string errors;
  try {
    return Json::parseFromStream(Json::CharReaderBuilder(), in, &document, &errors) && document.isObject();
  } catch (const Json::Exception&) {
    return false;
  }
}

std::string ReadAll(int file) {
  std::string text;
  char block[4096];
  ssize_t got;
  while (text.size() < kMost && (got = read(file, block, sizeof block)) > 0)
    text.append(block, static_cast<std::size_t>(got));
  return text;
}

}  // namespace

std::string TokenPath(const std::string& client) { return kFolder + client + "_token.json"; }

TokenState ReadTokenState(const std::string& client) {
  TokenState state;
  const int file = open(TokenPath(client).c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (file < 0) {
    state.known = errno == ENOENT;
    return state;
  }
  state.exists = true;
  struct stat facts {};
  Json::Value document;
  state.known = fstat(file, &facts) == 0 && S_ISREG(facts.st_mode) && Parse(ReadAll(file), document);
  close(file);
  if (!state.known) return state;
  const std::int64_t createdAt = Seconds(document, "created_at"), lifetime = Seconds(document, "expires_in");
  const auto isTime = [](std::int64_t value) { return value >= INT32_MIN && value <= INT32_MAX; };
  state.known = isTime(createdAt) && isTime(lifetime);  // the library takes no others
  if (!state.known) return state;
  state.createdAt = createdAt;
  state.expiresAt = createdAt + lifetime;
  return state;
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
