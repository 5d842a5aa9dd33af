// Strict form parsing; see the header for what is canonical. Brackets may stand unescaped in names ("scopes[]"),
// where senders leave names as they are.
#include "sim/form.h"

#include <algorithm>
#include <cstring>

namespace kivosim {
namespace {

bool IsUnreserved(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         (c != '\0' && std::strchr("-._~", c));
}

int AnyHex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

int UpperHex(char c) { return c >= 'a' && c <= 'f' ? -1 : AnyHex(c); }

std::string Decode(const std::string& text, const char* alsoPlain, std::string& decoded) {
  decoded.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      if (!IsUnreserved(text[i]) && (text[i] == '\0' || !std::strchr(alsoPlain, text[i])))
        return "unescaped byte in \"" + text + "\"";
      decoded += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? UpperHex(text[i + 1]) : -1;
    const int low = high >= 0 ? UpperHex(text[i + 2]) : -1;
    if (low < 0) return "bad escape in \"" + text + "\"";
    const char byte = static_cast<char>(high * 16 + low);
    if (IsUnreserved(byte)) return "needless escape in \"" + text + "\"";
    decoded += byte;
    i += 2;
  }
  return "";
}

std::string DecodeLeniently(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? AnyHex(text[i + 1]) : -1;
    const int low = high >= 0 ? AnyHex(text[i + 2]) : -1;
    decoded += low >= 0 ? static_cast<char>(high * 16 + low) : text[i] == '+' ? ' ' : text[i];
    if (low >= 0) i += 2;
  }
  return decoded;
}

std::string Encode(const std::string& text) {
  std::string encoded;
  for (const char c : text) {
    if (IsUnreserved(c)) {
      encoded += c;
      continue;
    }
    encoded += '%';
    encoded += "0123456789ABCDEF"[static_cast<unsigned char>(c) >> 4];
    encoded += "0123456789ABCDEF"[static_cast<unsigned char>(c) & 15];
  }
  return encoded;
}

std::string ParsePair(const std::string& text, Pairs& pairs) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) return "no \"=\" in \"" + text + "\"";
  if (equals == 0) return "no name in \"" + text + "\"";
  std::string name, value;
  std::string problem = Decode(text.substr(0, equals), "[]", name);
  if (problem.empty()) problem = Decode(text.substr(equals + 1), "", value);
  if (problem.empty()) pairs.emplace_back(name, value);
  return problem;
}

}  // namespace

std::string ParseForm(const std::string& text, Pairs& pairs) {
  pairs.clear();
  if (text.empty()) return "";
  for (std::size_t start = 0; start <= text.size();) {
    const std::size_t end = std::min(text.find('&', start), text.size());
    const std::string problem = ParsePair(text.substr(start, end - start), pairs);
    if (!problem.empty()) return problem;
    start = end + 1;
  }
  return "";
}

Pairs ParseBrowserForm(const std::string& text) {
  Pairs pairs;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('&', start), text.size());
    const std::string pair = text.substr(start, end - start);
    const std::size_t equals = std::min(pair.find('='), pair.size());
    if (!pair.empty())
      pairs.emplace_back(DecodeLeniently(pair.substr(0, equals)),
                         DecodeLeniently(pair.substr(std::min(equals + 1, pair.size()))));
    start = end + 1;
  }
  return pairs;
}

std::string FormText(const Pairs& pairs) {
  std::string text;
  for (const auto& [name, value] : pairs) text += (text.empty() ? "" : "&") + Encode(name) + "=" + Encode(value);
  return text;
}

}  // namespace kivosim
