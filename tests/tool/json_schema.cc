// The checker. Strict where a schema leaves room for mistakes: an object schema must list its keys, and a document is
// read without the parser's extensions.
#include "json_schema.h"

#include <gtest/gtest.h>
#include <regex.h>

#include <fstream>
#include <set>
#include <sstream>

namespace tooltest {
namespace {

bool ParseStrictly(const std::string& text, Json::Value& out) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  std::istringstream stream(text);
  std::string errors;
  if (!Json::parseFromStream(builder, stream, &out, &errors)) return false;
  std::string rest;
  return !(stream >> rest);
}

bool HasType(const Json::Value& value, const std::string& type) {
  if (type == "null") return value.isNull();
  if (type == "boolean") return value.isBool();
  if (type == "integer") return value.isIntegral() && !value.isBool();
  if (type == "string") return value.isString();
  if (type == "array") return value.isArray();
  return type == "object" && value.isObject();
}

bool HasOneType(const Json::Value& value, const Json::Value& types) {
  if (types.isString()) return HasType(value, types.asString());
  for (const Json::Value& type : types) {
    if (HasType(value, type.asString())) return true;
  }
  return false;
}

/// With an extended POSIX expression, which the patterns of the schemas are too.
bool Matches(const std::string& text, const std::string& pattern) {
  regex_t expression;
  if (regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) return false;
  const bool found = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
  regfree(&expression);
  return found;
}

std::string Check(const Json::Value& value, const Json::Value& schema, const std::string& place);

std::string CheckObject(const Json::Value& value, const Json::Value& schema, const std::string& place) {
  for (const Json::Value& key : schema["required"]) {
    if (!value.isMember(key.asString())) return place + " lacks " + key.asString();
  }
  for (const std::string& key : value.getMemberNames()) {
    const Json::Value known = schema["properties"][key];
    const Json::Value& more = schema["additionalProperties"];
    if (known.isNull() && !more.isObject()) return place + " has the unknown key " + key;
    if (std::string wrong = Check(value[key], known.isNull() ? more : known, place + "." + key); !wrong.empty())
      return wrong;
  }
  return "";
}

std::string Check(const Json::Value& value, const Json::Value& schema, const std::string& place) {
  static const std::set<std::string> known = {
      "$schema", "title", "description", "type",    "properties", "required", "additionalProperties",
      "items",   "enum",  "const",       "pattern", "minLength"};
  for (const std::string& keyword : schema.getMemberNames()) {
    if (known.count(keyword) == 0) return place + ": the checker does not know " + keyword;
  }
  if (schema.isMember("const") && value != schema["const"]) return place + " is not the constant";
  if (schema.isMember("type") && !HasOneType(value, schema["type"])) return place + " has the wrong type";
  if (schema.isMember("enum")) {
    bool found = false;
    for (const Json::Value& choice : schema["enum"]) found = found || choice == value;
    if (!found) return place + " is none of the choices";
  }
  if (value.isString()) {
    if (value.asString().size() < schema.get("minLength", 0).asUInt()) return place + " is too short";
    const std::string pattern = schema.get("pattern", ".*").asString();
    if (!Matches(value.asString(), pattern)) return place + " does not match " + pattern;
  }
  if (value.isArray()) {
    for (const Json::Value& item : value) {
      if (std::string wrong = Check(item, schema["items"], place + "[]"); !wrong.empty()) return wrong;
    }
  }
  return value.isObject() ? CheckObject(value, schema, place) : "";
}

}  // namespace

std::string CheckDocument(const std::string& name, const std::string& text) {
  std::ifstream file(std::string(VARNKIVO_SCHEMA_FOLDER) + "/" + name + ".schema.json");
  std::stringstream content;
  content << file.rdbuf();
  Json::Value schema, document;
  if (!ParseStrictly(content.str(), schema)) return "the schema " + name + " cannot be read";
  if (!ParseStrictly(text, document)) return "not one JSON document: " + text;
  return Check(document, schema, name);
}

Json::Value Parse(const std::string& text) {
  Json::Value document;
  EXPECT_TRUE(ParseStrictly(text, document)) << text;
  return document;
}

}  // namespace tooltest
