// Makes texts fit to be printed. No state. Length and range of a UTF-8 sequence come from its first byte: the second
// byte's range is narrower after E0, ED, F0 and F4, which keeps overlong forms and surrogates out.
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace kivotool {
namespace {

/// Bytes of the valid sequence at `at`, 0 when there is none.
std::size_t SequenceLength(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
  const unsigned first = byte(at);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  const std::size_t length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if ((byte(at + i) & 0xC0u) != 0x80u) return 0;
  }
  return length;
}

std::string Escape(unsigned code) {
  char out[8];
  std::snprintf(out, sizeof out, code < 0x100 ? "\\x%02x" : "\\u%04x", code & 0xFFFFu);
  return out;
}

bool IsBidirectionalControl(unsigned code) {
  return code == 0x061C || code == 0x200E || code == 0x200F || (code >= 0x202A && code <= 0x202E) ||
         (code >= 0x2066 && code <= 0x2069);
}

}  // namespace

std::string Utf8(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = SequenceLength(text, i);
    if (length == 0)
      out += "\xEF\xBF\xBD";
    else
      out.append(text, i, length);
    i += length == 0 ? 1 : length;
  }
  return out;
}

std::size_t SteeringLength(const std::string& text, std::size_t at, unsigned& code) {
  const auto bits = [&](std::size_t i) {
    return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) & 0x3Fu : 0u;
  };
  const auto first = static_cast<unsigned char>(text[at]);
  code = first;
  if (first < 0x80) return first < 0x20 || first == 0x7F ? 1 : 0;
  if ((first & 0xE0u) == 0xC0) {
    code = (first & 0x1Fu) << 6u | bits(1);
    return code < 0xA0 || IsBidirectionalControl(code) ? 2 : 0;  // C1 controls: some terminals obey them
  }
  if ((first & 0xF0u) != 0xE0) return 0;
  code = (first & 0x0Fu) << 12u | bits(1) << 6u | bits(2);
  return IsBidirectionalControl(code) ? 3 : 0;
}

std::string Printable(const std::string& text) {
  const std::string clean = Utf8(text);
  std::string out;
  for (std::size_t i = 0; i < clean.size(); ++i) {
    unsigned code = 0;
    const std::size_t length = SteeringLength(clean, i, code);
    out += length == 0 ? std::string(1, clean[i]) : Escape(code);
    if (length > 1) i += length - 1;
  }
  return out;
}

std::string QuotedInBrief(const std::string& text) {
  constexpr std::size_t kMost = 60;
  std::size_t length = std::min(text.size(), kMost);
  while (length < text.size() && length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0u) == 0x80u) --length;
  return '"' + Printable(text.substr(0, length)) + (length < text.size() ? "..." : "") + '"';
}

bool HasControls(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) return true;
  }
  return false;
}

std::string Rfc3339(std::int64_t epoch) {
  const std::time_t seconds = epoch;
  std::tm parts{};
  if (!gmtime_r(&seconds, &parts) || parts.tm_year > 8099 || parts.tm_year < -1900) return "";
  char out[32];
  return std::string(out, std::strftime(out, sizeof out, "%Y-%m-%dT%H:%M:%SZ", &parts));
}

std::string ShellWord(const std::string& word) {
  constexpr char kPlain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789@%+=:,./_-";
  if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) return word;
  std::string out = "'";
  for (const char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace kivotool
