// Reads a token set member by member. Touches nothing.
// Times are 32-bit numbers on disk but are added as wider ones: a lifetime must not wrap around.
#include "token_set.h"

#include "internal/json_utils.h"
#include "kivo_exception.h"

#include <boost/lexical_cast.hpp>

#include <algorithm>
#include <utility>

namespace varnkivo {
namespace {

/// RFC 3629; other bytes are no JSON, and no reader has to take them.
bool IsUtf8(const std::string& text) {
  std::size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const std::size_t length = lead < 0x80   ? 1
                               : lead < 0xc2 ? 0
                               : lead < 0xe0 ? 2
                               : lead < 0xf0 ? 3
                               : lead < 0xf5 ? 4
                                             : 0;
    if (length == 0 || length > text.size() - at) return false;
    for (std::size_t i = 1; i < length; ++i)
      if ((static_cast<unsigned char>(text[at + i]) & 0xc0) != 0x80) return false;
    const auto second = length > 1 ? static_cast<unsigned char>(text[at + 1]) : 0;
    if ((lead == 0xe0 && second < 0xa0) || (lead == 0xed && second > 0x9f) || (lead == 0xf0 && second < 0x90) ||
        (lead == 0xf4 && second > 0x8f))
      return false;
    at += length;
  }
  return true;
}

/// A token with a control character could neither be sent in a header nor, with a NUL, be read back.
bool IsUsable(const std::string& token) {
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  return IsUtf8(token) && std::none_of(token.begin(), token.end(), isControl);
}

}  // namespace

TokenSet::TokenSet(Json::Value members) : members_(std::move(members)) {
  if (!members_.isObject()) throw KivoException(KIVO_ERR_BAD_JSON);
}

bool TokenSet::IsComplete(const Json::Value& answer) {
  for (const char* name : {"access_token", "id_token", "refresh_token"}) {
    if (!HasMember(answer, name)) return false;
    if (answer[name].isString() && !IsUsable(answer[name].asString())) return false;
  }
  return true;
}

std::string TokenSet::GetPkceTokenVal(const char* key) const {
  if (!members_.isMember(key)) throw KivoException(KIVO_ERR_TOKEN, std::string("Failed to get key: ") + key);
  const std::optional<std::string> text = TextMember(members_, key);
  if (!text) throw KivoException(KIVO_ERR_BAD_JSON);
  return *text;
}

std::int64_t TokenSet::GetExpiredAt() const {
  const auto createdAt = boost::lexical_cast<std::int32_t>(GetPkceTokenVal("created_at"));
  return std::int64_t{createdAt} + boost::lexical_cast<std::int32_t>(GetPkceTokenVal("expires_in"));
}

}  // namespace varnkivo
