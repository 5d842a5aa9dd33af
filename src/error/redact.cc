// Finds the values of secret members in text of any shape (JSON, JSON inside JSON, forms, URLs) and shortens them.
// Touches nothing. It scans instead of parsing because what is logged is often what could not be parsed.
#include "internal/redact.h"

#include <strings.h>

#include <algorithm>
#include <cctype>

namespace varnkivo {
namespace {

constexpr std::size_t kMostLogged = 2048;
constexpr std::size_t kShown = 10;

struct SecretName {
  std::string_view name;
  std::size_t shown;  // how many characters of the value may be seen
};

constexpr SecretName kSecretNames[] = {{"access_token", kShown}, {"id_token", kShown},       {"refresh_token", kShown},
                                       {"auth_key", kShown},     {"code_verifier", kShown},  {"api_key", kShown},
                                       {"grant_code", kShown},   {"lu_token", kShown},       {"passwd", 0},
                                       {"passwd_new", 0},        {"passwd_confirmation", 0}, {"kivoPW", 0}};

constexpr SecretName kBearer = {"Bearer", kShown};

bool IsSameName(std::string_view name, std::string_view word) {
  return name.size() == word.size() && strncasecmp(name.data(), word.data(), word.size()) == 0;
}

bool IsNameCharacter(char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '_'; }

const SecretName* FindSecretName(std::string_view word) {
  if (IsSameName(kBearer.name, word)) return &kBearer;
  const auto* found = std::find_if(std::begin(kSecretNames), std::end(kSecretNames),
                                   [&](const SecretName& secret) { return IsSameName(secret.name, word); });
  return found == std::end(kSecretNames) ? nullptr : found;
}

std::size_t SkipAny(std::string_view text, std::size_t at, std::string_view set) {
  const std::size_t next = text.find_first_not_of(set, at);
  return next == std::string_view::npos ? text.size() : next;
}

/// End of a quoted value that begins at `at`: the first closing quote that is not itself escaped. `quoting` backslashes
/// stand before the quotes themselves where the JSON lies inside a JSON string.
std::size_t QuotedEnd(std::string_view text, std::size_t at, std::size_t quoting, char quote = '"') {
  for (std::size_t backslashes = 0; at < text.size(); ++at) {
    if (text[at] == '\\') {
      ++backslashes;
    } else if (text[at] == quote && backslashes == quoting) {
      return at - quoting;
    } else {
      backslashes = 0;
    }
  }
  return text.size();
}

/// End of an array or object that begins at `at`.
std::size_t NestedEnd(std::string_view text, std::size_t at) {
  int depth = 0;
  for (; at < text.size(); ++at) {
    if (text[at] == '"')
      at = QuotedEnd(text, at + 1, 0);
    else if (text[at] == '[' || text[at] == '{')
      ++depth;
    else if ((text[at] == ']' || text[at] == '}') && --depth == 0)
      return at + 1;
  }
  return text.size();
}

struct Value {
  std::size_t begin, end;  // empty when the name is not followed by a value
  bool whole;              // not even its beginning may be seen
};

/// Where the `=`, `=>`, `:`, %3D or %3A at `at` ends; `at` where there is none.
std::size_t SeparatorEnd(std::string_view text, std::size_t at) {
  if (text.substr(at, 2) == "=>") return at + 2;
  if (at < text.size() && (text[at] == '=' || text[at] == ':')) return at + 1;
  for (const std::string_view escaped : {"%3D", "%3d", "%3A", "%3a"})
    if (text.substr(at, escaped.size()) == escaped) return at + escaped.size();
  return at;
}

std::size_t FindOrEnd(std::string_view text, std::string_view set, std::size_t at) {
  return std::min(text.find_first_of(set, at), text.size());
}

/// The text behind the name of an element, or of a cell that a value's cell follows.
Value FindInMarkup(std::string_view text, std::size_t at) {
  for (at = std::min(text.find('>', at), text.size()); at < text.size(); at = FindOrEnd(text, ">", at)) {
    at = SkipAny(text, at + 1, " \t\r\n");
    if (at < text.size() && text[at] != '<') break;
  }
  return {at, FindOrEnd(text, "<", at), true};
}

/// The "string(32) " in front of a value that PHP's var_dump shows.
std::size_t SkipType(std::string_view text, std::size_t at) {
  constexpr std::string_view kType = "string(";
  if (text.substr(at, kType.size()) != kType) return at;
  return SkipAny(text, SkipAny(text, at + kType.size(), "0123456789"), ") ");
}

/// The value that belongs to a name ending at `at`: after `"` and `:` as in JSON, `=` as in a form or a file, `=>` as
/// in a dump, or a tag.
Value FindValue(std::string_view text, std::size_t at) {
  const std::size_t separator = SkipAny(text, at, "\\\"'] \t\r\n"), after = SeparatorEnd(text, separator);
  if (after == separator && separator < text.size() && (text[separator] == '>' || text[separator] == '<'))
    return FindInMarkup(text, separator);
  if (after == separator) return {at, at, false};
  const std::size_t begin = SkipType(text, SkipAny(text, after, " \t\r\n")), quote = SkipAny(text, begin, "\\");
  if (quote < text.size() && (text[quote] == '"' || text[quote] == '\''))
    return {quote + 1, QuotedEnd(text, quote + 1, quote - begin, text[quote]), false};
  if (begin < text.size() && (text[begin] == '[' || text[begin] == '{')) return {begin, NestedEnd(text, begin), true};
  const bool json = text[after - 1] == ':';
  return {begin, FindOrEnd(text, json ? ",}] \t\r\n" : "& \t\r\n\"'<>", begin), false};
}

/// The token of an Authorization header (RFC 6750), which has no name of its own.
Value FindBearer(std::string_view text, std::size_t at) {
  const std::size_t begin = SkipAny(text, at, " +"), end = FindOrEnd(text, " \t\r\n\"'\\<>&,", begin);
  return begin > at && end - begin > kShown ? Value{begin, end, false} : Value{at, at, false};
}

/// A text that has been through here before stays as it is.
std::string Shortened(std::string_view value, std::size_t shown) {
  constexpr std::string_view kCut = "...";
  const bool isCut = value.size() >= kCut.size() && value.substr(value.size() - kCut.size()) == kCut;
  if (isCut && value.size() <= shown + kCut.size()) return std::string(value);
  return std::string(value.substr(0, shown)).append(kCut);
}

std::string HideSecrets(std::string_view text) {
  std::string out;
  std::size_t at = 0;
  while (at < text.size()) {
    if (!IsNameCharacter(text[at])) {
      out += text[at++];
      continue;
    }
    std::size_t end = at;
    while (end < text.size() && IsNameCharacter(text[end])) ++end;
    const SecretName* secret = FindSecretName(text.substr(at, end - at));
    const bool closesElement = at > 0 && text[at - 1] == '/' && end < text.size() && text[end] == '>';
    const Value value = !secret || closesElement ? Value{end, end, false}
                        : secret == &kBearer     ? FindBearer(text, end)
                                                 : FindValue(text, end);
    out.append(text.substr(at, end - at));
    if (value.begin > end) out += HideSecrets(text.substr(end, value.begin - end));  // tags may hold names too
    at = value.begin;
    if (!secret || value.end <= value.begin) continue;
    out += Shortened(text.substr(value.begin, value.end - value.begin), value.whole ? 0 : secret->shown);
    at = value.end;
  }
  return out;
}

std::string EscapeControls(std::string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7f) {
      out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

std::string Redact(std::string_view text) {
  // Twice what is shown is looked at: a secret that begins inside the part shown must not be cut before it is known.
  const std::string hidden = HideSecrets(text.substr(0, 2 * kMostLogged));
  return EscapeControls(std::string_view(hidden).substr(0, kMostLogged));
}

std::string RedactValue(std::string_view name, std::string_view value) {
  const SecretName* secret = FindSecretName(name);
  return secret ? EscapeControls(value.substr(0, secret->shown)) + "..." : Redact(value);
}

std::string Cut10(std::string_view secret) { return EscapeControls(secret.substr(0, kShown)); }

}  // namespace varnkivo
