// A key/value file and a value to put into it. Every value without a NUL reads back as it was, and nothing else
// changes.
#include "key_value_text.h"

#include <algorithm>

#include "property.h"

using varnplatform::FindValue;
using varnplatform::ParsePairs;
using varnplatform::PrintLine;
using varnplatform::WithLine;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string all(reinterpret_cast<const char*>(data), size);
  const std::size_t half = all.find('\xff');
  const std::string content = all.substr(0, half), value = half == std::string::npos ? "" : all.substr(half + 1);
  const auto before = ParsePairs(content, "=");
  const std::string key = "full_name";
  const std::optional<std::string> line = PrintLine(key, value, "%s=\"%s\"\n");
  if (!line) return 0;
  Require(value.find('\0') == std::string::npos, "a NUL is refused");
  Require(std::count(line->begin(), line->end(), '\n') == 1 && line->back() == '\n', "a value is one line", *line);
  const std::string after = WithLine(content, key, *line);
  Require(FindValue(after, key) == value, "a value reads back", value);
  for (const auto& [name, old] : before)
    Require(name == key || FindValue(after, name) == old, "the other keys keep their values", name);
  for (const auto& [name, now] : ParsePairs(after, "="))
    Require(name == key || FindValue(content, name) == now, "no key comes from nowhere", name);
  return 0;
}
