// Makes texts fit to be printed. No state. Length and range of a UTF-8 sequence come from its first byte: the second
// byte's range is narrower after E0, ED, F0 and F4, which keeps overlong forms and surrogates out.
#include "text.h"

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

std::string Hex(unsigned char byte) {
  char out[8];
  std::snprintf(out, sizeof out, "\\x%02x", static_cast<unsigned>(byte));
  return out;
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

std::string Printable(const std::string& text) {
  const std::string clean = Utf8(text);
  std::string out;
  for (std::size_t i = 0; i < clean.size(); ++i) {
    const auto byte = static_cast<unsigned char>(clean[i]);
    const auto next = i + 1 < clean.size() ? static_cast<unsigned char>(clean[i + 1]) : static_cast<unsigned char>(0);
    if (byte < 0x20 || byte == 0x7F)
      out += Hex(byte);
    else if (byte == 0xC2 && next < 0xA0)
      out += Hex(next), ++i;  // C1 controls: some terminals obey them
    else
      out += clean[i];
  }
  return out;
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
