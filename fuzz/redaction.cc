// Text on its way into a log. The first half is any text; of the second a secret is made, which must not be seen in a
// document that is JSON, JSON inside JSON, or a form.
#include "internal/redact.h"

#include <json/json.h>

#include <algorithm>

#include "property.h"

namespace {

constexpr std::size_t kMost = 4 * 2048;  // 2 KiB, each byte escaped at worst

void CheckText(const std::string& text) {
  const std::string shown = varnkivo::Redact(text);
  Require(shown.size() <= kMost, "a log line has an end", std::to_string(shown.size()));
  Require(std::none_of(shown.begin(), shown.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
          "a log line is one line", shown);
}

std::string Letters(const std::string& any) {
  std::string letters;
  for (const char c : any) letters += static_cast<char>('A' + (static_cast<unsigned char>(c) & 15));
  return letters;
}

std::string OneLine(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}

void CheckSecret(const std::string& any, const std::string& secret, const char* name) {
  Json::Value document, outer;
  document["before"] = any;
  document[name] = secret;
  document["zeta"] = any;
  outer["body"] = OneLine(document);
  for (const std::string& text :
       {OneLine(document), OneLine(outer), "a=b&" + std::string(name) + "=" + secret + "&c=d",
        "<" + std::string(name) + ">" + secret + "</a>", "[" + std::string(name) + "] => " + secret}) {
    const std::string shown = varnkivo::Redact(text);
    Require(shown.find(secret) == std::string::npos, name, shown);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string all(reinterpret_cast<const char*>(data), size);
  CheckText(all);
  const std::string any = all.substr(0, std::min<std::size_t>(size / 2, 500)),
                    secret = Letters(all.substr(size / 2, 200));
  if (secret.size() < 12 || any.find(secret) != std::string::npos) return 0;
  for (const char* name : {"access_token", "refresh_token", "auth_key", "passwd", "kivoPW"})
    CheckSecret(any, secret, name);
  return 0;
}
