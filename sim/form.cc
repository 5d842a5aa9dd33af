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

int UpperHex(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

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

}  // namespace kivosim
