// The address to which a granted code is taken. Whatever a scope, a state or a code has in it, it stays in its own
// place, and a reader of the address gets it back byte for byte.
#include <cctype>
#include <sstream>
#include <string>

#include "pkce/web_request.h"
#include "property.h"

namespace {

/// RFC 3986, section 2.1; the address must not need more than this to be read.
std::string Decoded(const std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    Require(i + 2 < text.size() && std::isxdigit(text[i + 1]) && std::isxdigit(text[i + 2]), "two digits", text);
    decoded += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
    i += 2;
  }
  return decoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t first = input.find('|'), second = first == std::string::npos ? first : input.find('|', first + 1);
  if (second == std::string::npos) return 0;
  const std::string scope = input.substr(0, first), state = input.substr(first + 1, second - first - 1),
                    code = input.substr(second + 1);
  const std::string query = varnkivo::EncodeQuery({{"scope", scope}, {"state", state}, {"code", code}});
  const char* const kUnreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~%=&";
  Require(query.find_first_not_of(kUnreserved) == std::string::npos, "nothing else needs encoding", query);
  std::istringstream parts(query);
  for (const auto& [name, value] : varnkivo::Pairs{{"scope", scope}, {"state", state}, {"code", code}}) {
    std::string part;
    Require(static_cast<bool>(std::getline(parts, part, '&')), "three parts", query);
    Require(part.compare(0, name.size() + 1, name + "=") == 0, "in their order", query);
    Require(Decoded(part.substr(name.size() + 1)) == value, "read back as it was", query);
  }
  return 0;
}
