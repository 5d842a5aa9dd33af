// Makes the address of an authorization request and takes the answer apart. Touches nothing but the random source.
// A pasted address without our state is refused: it may be somebody else's sign-in.
#include "authorization.h"

#include <sys/random.h>
#include <varn/platform.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

#include "failure.h"

namespace kivotool {
namespace {

constexpr int kPkceSize = 44;
constexpr std::size_t kLongest = 8192;

/// RFC 3986, section 2.3: what needs no escape stays.
std::string Escape(const std::string& text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '-' || c == '.' || c == '_' || c == '~')
      out += c;
    else
      out += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
  }
  return out;
}

std::string Unescape(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escaped = text[i] == '%' && i + 2 < text.size() &&
                         std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
                         std::isxdigit(static_cast<unsigned char>(text[i + 2]));
    if (!escaped) {
      out += text[i] == '+' ? ' ' : text[i];
      continue;
    }
    out += static_cast<char>(std::strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
    i += 2;
  }
  return out;
}

using Parameters = std::multimap<std::string, std::string>;

Parameters Query(const std::string& address) {
  Parameters parameters;
  const std::size_t begin = address.find('?') + 1, end = address.find('#', begin);
  std::string rest = address.substr(begin, end - begin);
  while (!rest.empty()) {
    const std::size_t next = rest.find('&');
    const std::string pair = rest.substr(0, next);
    const std::size_t equals = pair.find('=');
    parameters.emplace(Unescape(pair.substr(0, equals)),
                       equals == std::string::npos ? "" : Unescape(pair.substr(equals + 1)));
    rest = next == std::string::npos ? "" : rest.substr(next + 1);
  }
  return parameters;
}

/// Empty where it is missing. Of two it would be anybody's guess which one counts.
std::string Only(const Parameters& parameters, const std::string& name, const std::string& again) {
  const auto found = parameters.equal_range(name);
  if (found.first == found.second) return "";
  if (std::next(found.first) != found.second)
    throw UsageFailure("That address has \"" + name + "\" more than once.", again);
  return found.first->second;
}

std::string Trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(" \t\r\n"), end = text.find_last_not_of(" \t\r\n");
  return begin == std::string::npos ? "" : text.substr(begin, end - begin + 1);
}

}  // namespace

AuthorizationRequest NewAuthorizationRequest() {
  char challenge[kPkceSize] = {}, verifier[kPkceSize] = {};
  unsigned char random[16];
  if (varn_challenge_verifier_no_save(challenge, kPkceSize, verifier, kPkceSize) < 0 ||
      getrandom(random, sizeof random, 0) != sizeof random) {
    throw Failure{kFailed,         std::nullopt, "The system has no random numbers to give.",
                  Retry::kPerhaps, "Nothing.",   "varnkivo login"};
  }
  AuthorizationRequest request{"", verifier, challenge};
  for (const unsigned char byte : random) {
    request.state += "0123456789abcdef"[byte >> 4];
    request.state += "0123456789abcdef"[byte & 15];
  }
  return request;
}

std::string AuthorizationUrl(const Json::Value& config, const AuthorizationRequest& request) {
  const std::vector<std::pair<const char*, std::string>> parameters = {
      {"response_type", "code"},
      {"client_id", config["client_id"].asString()},
      {"redirect_uri", config["login_redirect_uri"].asString()},
      {"scope", config["scope"].asString()},
      {"audience", config["audience"].asString()},
      {"state", request.state},
      {"code_challenge", request.challenge},
      {"code_challenge_method", "S256"}};
  std::string url = config["auth_endpoint"].asString();
  char separator = '?';
  for (const auto& [name, value] : parameters) {
    url += separator + std::string(name) + "=" + Escape(value);
    separator = '&';
  }
  return url;
}

std::string CodeFromPasted(const std::string& pasted, const std::string& state, const std::string& again) {
  const std::string text = Trimmed(pasted);
  if (text.empty()) throw UsageFailure("Nothing was pasted.", again);
  const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  if (text.size() > kLongest || std::any_of(text.begin(), text.end(), isControl))
    throw UsageFailure("That is neither the address that the browser was led to nor a code.", again);
  if (text.find('?') == std::string::npos) {
    if (text.find_first_of(" /&=:") != std::string::npos)
      throw UsageFailure("That is neither the address that the browser was led to nor a code.", again);
    return text;
  }
  const Parameters parameters = Query(text);
  if (Only(parameters, "state", again) != state)
    throw UsageFailure("That address belongs to another sign-in: its \"state\" is not the one of this one.", again);
  const std::string error = Only(parameters, "error", again), code = Only(parameters, "code", again);
  if (!error.empty()) {
    throw Failure{kRefused,
                  std::nullopt,
                  "The account centre's page answered \"" + error + "\".",
                  Retry::kNo,
                  "Nothing; nothing was stored.",
                  again};
  }
  if (code.empty()) throw UsageFailure("That address has no code in it.", again);
  return code;
}

}  // namespace kivotool
