// Parsing and printing key="value" lines. Shell scripts of the device read these files too, hence the escapes for the
// dollar sign and the back-tick. What the escapes do not cover stays byte-identical: others compare these files.
#include "key_value_text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <unordered_set>

namespace varnplatform {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Cuts the first line, without its newline, off `rest`.
std::string_view NextLine(std::string_view* rest) {
  const std::size_t end = std::min(rest->find('\n'), rest->size());
  const std::string_view line = rest->substr(0, end);
  rest->remove_prefix(std::min(end + 1, rest->size()));
  return line;
}

struct RawPair {
  std::string_view key, value;  // value as it stands in the line, quotes and escapes included
};

std::optional<RawPair> SplitLine(std::string_view line, std::string_view separator) {
  line = Trim(line);
  const std::size_t at = line.find(separator);
  if (line.empty() || line.front() == '#' || at == std::string_view::npos) return std::nullopt;
  const RawPair pair{Trim(line.substr(0, at)), Trim(line.substr(at + separator.size()))};
  if (pair.key.empty()) return std::nullopt;
  return pair;
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Decodes the escape that starts after the backslash at `at`; number of characters it took, 0 where it is none.
std::size_t DecodeEscape(std::string_view raw, std::size_t at, std::string* out) {
  if (at + 1 >= raw.size()) return 0;
  const char c = raw[at + 1];
  switch (c) {
    case '"':
    case '\\':
    case '$':
    case '`':
      out->push_back(c);
      return 2;
    case 'n':
      out->push_back('\n');
      return 2;
    case 'r':
      out->push_back('\r');
      return 2;
    case 't':
      out->push_back('\t');
      return 2;
    case 'x':
      break;
    default:
      return 0;
  }
  const int high = at + 3 < raw.size() ? HexDigit(raw[at + 2]) : -1;
  const int low = high >= 0 ? HexDigit(raw[at + 3]) : -1;
  if (low < 0 || high + low == 0) return 0;
  out->push_back(static_cast<char>(high * 16 + low));
  return 4;
}

std::string Decode(std::string_view raw) {
  const bool quoted = !raw.empty() && raw.front() == '"';
  if (quoted) raw.remove_prefix(1);
  std::string value;
  value.reserve(raw.size());
  for (std::size_t at = 0; at < raw.size();) {
    const char c = raw[at];
    if (quoted && c == '"') break;  // what stands after the closing quote is not the value's
    const std::size_t taken = c == '\\' ? DecodeEscape(raw, at, &value) : 0;
    if (taken == 0) value.push_back(c);
    at += std::max<std::size_t>(taken, 1);
  }
  return value;
}

void AppendHex(char c, std::string* out) {
  char text[5];
  std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(c)));
  out->append(text);
}

bool IsControl(char c) { return (c >= 0 && c < 0x20) || c == 0x7f; }

std::string Encode(std::string_view value, bool blanksAtEnds) {
  std::string out;
  out.reserve(value.size() + 8);
  for (std::size_t at = 0; at < value.size(); ++at) {
    const char c = value[at];
    const bool atEnd = at == 0 || at + 1 == value.size();
    if (c == '"' || c == '\\' || c == '$' || c == '`') {
      out.append({'\\', c});
    } else if (c == '\n') {
      out.append("\\n");
    } else if (c == '\r') {
      out.append("\\r");
    } else if (c == '\t') {
      out.append("\\t");
    } else if (IsControl(c) || (blanksAtEnds && atEnd && c == ' ')) {
      AppendHex(c, &out);
    } else {
      out.push_back(c);
    }
  }
  return out;
}

bool IsKey(std::string_view key) {
  const auto allowed = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == '.';
  };
  return !key.empty() && std::all_of(key.begin(), key.end(), allowed);
}

/// The format with its two "%s" filled in; nothing where it has other conversions or is not one line.
std::optional<std::string> Fill(std::string_view format, std::string_view key, std::string_view value) {
  const std::string_view texts[] = {key, value};
  std::string out;
  std::size_t used = 0;
  for (std::size_t at = 0; at < format.size(); ++at) {
    const bool percent = format[at] == '%';
    const char next = at + 1 < format.size() ? format[at + 1] : '\0';
    if (percent && next == 's' && used < 2) {
      out.append(texts[used++]);
    } else if (percent && next == '%') {
      out.push_back('%');
    } else if (percent) {
      return std::nullopt;
    } else {
      out.push_back(format[at]);
      continue;
    }
    ++at;
  }
  if (used != 2 || out.find('\n') + 1 != out.size()) return std::nullopt;
  return out;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> ParsePairs(std::string_view content, std::string_view separator) {
  std::vector<std::pair<std::string, std::string>> pairs;
  std::unordered_set<std::string_view> seen;
  while (!content.empty()) {
    const auto pair = SplitLine(NextLine(&content), separator);
    if (pair && seen.insert(pair->key).second) pairs.emplace_back(pair->key, Decode(pair->value));
  }
  return pairs;
}

std::optional<std::string> FindValue(std::string_view content, std::string_view key) {
  while (!content.empty()) {
    const auto pair = SplitLine(NextLine(&content), "=");
    if (pair && pair->key == key) return Decode(pair->value);
  }
  return std::nullopt;
}

std::optional<std::string> PrintLine(std::string_view key, std::string_view value, std::string_view format) {
  if (!IsKey(key)) return std::nullopt;
  for (const bool blanksAtEnds : {false, true}) {  // an unquoted value cannot have a bare blank at an end
    auto line = Fill(format, key, Encode(value, blanksAtEnds));
    if (line && FindValue(*line, key) == value) return line;
  }
  return std::nullopt;
}

std::string WithLine(std::string_view content, std::string_view key, std::string_view line) {
  std::string_view rest = content;
  while (!rest.empty()) {
    const auto start = static_cast<std::size_t>(rest.data() - content.data());
    const auto pair = SplitLine(NextLine(&rest), "=");
    if (pair && pair->key == key) return std::string(content.substr(0, start)).append(line).append(rest);
  }
  std::string out(content);
  if (!out.empty() && out.back() != '\n') out.push_back('\n');
  return out.append(line);
}

}  // namespace varnplatform
