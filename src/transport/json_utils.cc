// Reading of JSON without jsoncpp's surprises: it throws on kinds that do not fit, and out of the parser when a text is
// nested too deeply.
#include "internal/json_utils.h"

#include "internal/file_text.h"
#include "internal/log.h"
#include "internal/redact.h"
#include "kivo_exception.h"

#include <algorithm>
#include <memory>
#include <new>
#include <sstream>

namespace varnkivo {
namespace {

constexpr std::ptrdiff_t kMostValues = 250'000;  // each takes some 100 bytes once parsed, whatever it took as text

}  // namespace

bool ParseJson(const std::string& text, Json::Value& out) {
  if (std::count(text.begin(), text.end(), ',') > kMostValues) return false;
// Json::Reader rather than its successor: it refuses a byte order mark and trailing commas.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  Json::Reader reader;
  try {
    return reader.parse(text, out, false);  // without the comments
  } catch (const Json::RuntimeError&) {
    return false;
  }
#pragma GCC diagnostic pop
}

Json::Value ParseAnswer(const std::string& text) {
  Json::Value value;
  if (ParseJson(text, value)) return value;
  LogError("..//include/internal/json_utils", "Failed to parse json: %s", Redact(text).c_str());
  throw KivoException(KIVO_ERR_BAD_JSON);
}

Json::Value ReadJsonFile(const std::string& path) {
  const std::optional<Wiped> text = ReadFileText(path.c_str(), Links::kFollow);
  Json::Value value;
  if (!text || !ParseJson(*text, value)) throw KivoException(KIVO_ERR_BAD_JSON);
  return value;
}

std::optional<std::string> TextMember(const Json::Value& object, const char* name) { return ToText(object[name]); }

std::optional<std::string> ToText(const Json::Value& value) {
  if (value.isObject() || value.isArray()) return std::nullopt;
  std::string text = value.asString();
  if (text.find('\0') != std::string::npos) return std::nullopt;
  return text;
}

std::optional<bool> ToBool(const Json::Value& value) {
  if (value.isBool() || (value.isInt() && (value.asInt() == 0 || value.asInt() == 1))) return value.asBool();
  if (value == "true" || value == "yes") return true;
  if (value == "false" || value == "no") return false;
  return std::nullopt;
}

const char* StringOrNull(const Json::Value& object, const char* name) {
  if (!HasMember(object, name)) return nullptr;
  const Json::Value& value = object[name];
  return value.isString() && value.asString().find('\0') == std::string::npos ? value.asCString() : nullptr;
}

bool HasMember(const Json::Value& value, const char* name) { return value.isObject() && value.isMember(name); }

/// A comment of the server's would take the rest of the line with it.
Wiped JsonLine(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = true;
  std::ostringstream out;
  std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter())->write(value, &out);
  out << '\n';
  if (!out) throw std::bad_alloc();  // a stream does not let it through, and would give half a text
  return Wiped(out.str());
}

}  // namespace varnkivo
