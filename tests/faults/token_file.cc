// Reads token files on its own: with the library's reader a fault of that one would not show.
#include "token_file.h"

#include <json/reader.h>
#include <json/value.h>

#include <algorithm>
#include <cctype>
#include <memory>

namespace faults {
namespace {

constexpr std::size_t kMayShow = 10;      // characters of a secret
constexpr std::size_t kLongestWord = 31;  // of those that a log has for people

Json::Value Parse(const std::string& content) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(content.data(), content.data() + content.size(), &value, nullptr) || !value.isObject())
    return Json::Value(Json::objectValue);
  return value;
}

bool IsWhole(const std::string& content) {
  const Json::Value set = Parse(content);
  for (const char* name : {"access_token", "id_token", "refresh_token"})
    if (!set[name].isString() || set[name].asString().empty()) return false;
  return set["created_at"].isInt() && set["created_at"].asInt() > 0 && set["expires_in"].isInt() &&
         set["expires_in"].asInt() > 0;
}

bool IsTokenWord(const std::string& word) {
  if (word.size() > kLongestWord) return true;
  for (const char* begin : {"at-", "rt-", "code-", "eyJ"})
    if (word.rfind(begin, 0) == 0 && word.size() > kMayShow) return true;
  return false;
}

}  // namespace

TokenState StateOf(const std::optional<std::string>& now, const std::optional<std::string>& old) {
  if (!now) return TokenState::kAbsent;
  if (now == old) return TokenState::kOld;
  return IsWhole(*now) ? TokenState::kNew : TokenState::kBroken;
}

std::string RefreshToken(const std::string& content) {
  const Json::Value token = Parse(content)["refresh_token"];
  return token.isString() ? token.asString() : "";
}

std::vector<std::string> TokensIn(const std::string& content) {
  const Json::Value set = Parse(content);
  std::vector<std::string> tokens;
  for (const char* name : {"access_token", "id_token", "refresh_token"})
    if (set[name].isString()) tokens.push_back(set[name].asString());
  return tokens;
}

std::string FindToken(const std::string& log) {
  const auto isPart = [](unsigned char c) { return std::isalnum(c) || c == '-' || c == '_'; };
  for (auto at = log.begin(); at != log.end();) {
    const auto begin = std::find_if(at, log.end(), isPart);
    at = std::find_if_not(begin, log.end(), isPart);
    if (const std::string word(begin, at); IsTokenWord(word)) return word;
  }
  return "";
}

}  // namespace faults
