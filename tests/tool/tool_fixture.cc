// Resets the device's files between tests; the sandbox has made them its own. The checker is strict where a schema
// leaves room for mistakes: an object's schema must list its keys, and a document is read without the parser's
// extensions.
#include "tool_fixture.h"

#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/user.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace tooltest {

namespace fs = std::filesystem;

namespace {

bool ParseStrictly(std::istream& stream, Json::Value& out) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  std::string errors, rest;
  return Json::parseFromStream(builder, stream, &out, &errors) && !(stream >> rest);
}

bool HasType(const Json::Value& value, const Json::Value& type) {
  for (const Json::Value& one : type.isArray() ? type : Json::Value())
    if (HasType(value, one)) return true;
  if (type == "integer") return value.isIntegral() && !value.isBool();
  if (type == "number") return value.isNumeric() && !value.isBool();
  return (type == "null" && value.isNull()) || (type == "boolean" && value.isBool()) ||
         (type == "string" && value.isString()) || (type == "array" && value.isArray()) ||
         (type == "object" && value.isObject());
}

std::string Check(const Json::Value& value, const Json::Value& schema, const std::string& place) {
  static const std::set<std::string> known = {
      "$schema", "title", "description", "type",    "properties", "required", "additionalProperties",
      "items",   "enum",  "const",       "pattern", "minLength"};
  for (const std::string& keyword : schema.getMemberNames())
    if (known.count(keyword) == 0) return place + ": the checker does not know " + keyword;
  if (schema.isMember("const") && value != schema["const"]) return place + " is not the constant";
  if (schema.isMember("type") && !HasType(value, schema["type"])) return place + " has the wrong type";
  if (schema.isMember("enum") && std::find(schema["enum"].begin(), schema["enum"].end(), value) == schema["enum"].end())
    return place + " is none of the choices";
  if (value.isString()) {
    const std::string text = value.asString(), pattern = schema.get("pattern", "").asString();
    if (text.size() < schema.get("minLength", 0).asUInt()) return place + " is too short";
    if (!testing::Matches(testing::ContainsRegex(pattern))(text)) return place + " does not match " + pattern;
  }
  std::string wrong;
  for (const Json::Value& item : value.isArray() ? value : Json::Value())
    wrong += Check(item, schema["items"], place + "[]");
  if (!value.isObject()) return wrong;
  for (const Json::Value& key : schema["required"])
    if (!value.isMember(key.asString())) return place + " lacks " + key.asString();
  for (const std::string& key : value.getMemberNames()) {
    const Json::Value listed = schema["properties"][key], more = schema["additionalProperties"];
    if (listed.isNull() && !more.isObject()) return place + " has the unknown key " + key;
    wrong += Check(value[key], listed.isNull() ? more : listed, place + "." + key);
  }
  return wrong;
}

}  // namespace

ToolTest::ToolTest() {
  Cloud().Reset();
  Cloud().AddAccount({kEmail, kPassword, kUserId});
  std::error_code ignored;
  for (const char* path :
       {kJob, "/tmp/account_query_info.lock", "/usr/varn/var/log/events.jsonl", "/usr/varn/lib/plugins/kivo"})
    fs::remove_all(path, ignored);
  for (const auto& entry : fs::directory_iterator(fs::path(kRecord).parent_path())) fs::remove_all(entry, ignored);
}

kivosim::Simulator& ToolTest::Cloud() {
  static kivosim::Simulator* const cloud = [] {
    auto* made = new kivosim::Simulator;  // lives as long as the process
    made->Start();
    return made;
  }();
  return *cloud;
}

Words With(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

Result ToolTest::LogIn(const Words& more, const std::string& password) {
  return RunTool({With({"login", "--email", kEmail, "--password-stdin"}, more), password + "\n"});
}

void ToolTest::SignInLongAgo() {
  ASSERT_EQ(0, LogIn().exit);
  varnkivo::User().SetLastQueryTime(1000000000);
  Cloud().ClearJournal();
}

kivosim::TokenSet ToolTest::StoreToken(std::chrono::seconds age) {
  const kivosim::TokenSet set = Cloud().IssueTokens(kEmail, "kivo-device", kSerial, age);
  Write(kTokenFile, set.fileText, 0600);
  EXPECT_EQ(0, chown(kTokenFile, 934, 934));
  return set;
}

std::string ToolTest::AuthKey() { return varnkivo::User().GetAuthKey(); }

std::string ToolTest::Read(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void ToolTest::Write(const std::string& path, const std::string& content, mode_t mode) {
  unlink(path.c_str());
  std::ofstream(path) << content;
  ASSERT_EQ(0, chmod(path.c_str(), mode));
}

std::string ToolTest::Snapshot() {
  std::ostringstream out;
  for (const char* root : {"/usr/varn", "/etc", "/etc.defaults"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      struct stat status {};
      lstat(entry.path().c_str(), &status);
      out << entry.path() << ' ' << status.st_mode << ' ' << status.st_uid << ' ' << status.st_mtim.tv_sec << '.'
          << status.st_mtim.tv_nsec << ' ' << status.st_size << '\n';
    }
  }
  return out.str();
}

std::string CheckDocument(const std::string& name, const std::string& text) {
  std::ifstream file(std::string(VARNKIVO_SCHEMA_FOLDER) + "/" + name + ".schema.json");
  std::istringstream stream(text);
  Json::Value schema, document;
  if (!ParseStrictly(file, schema)) return "the schema " + name + " cannot be read";
  if (!ParseStrictly(stream, document)) return "not one JSON document: " + text;
  return Check(document, schema, name);
}

Json::Value Parse(const std::string& text) {
  std::istringstream stream(text);
  Json::Value document;
  EXPECT_TRUE(ParseStrictly(stream, document)) << text;
  return document;
}

Json::Value ErrorOf(const Result& result) {
  EXPECT_EQ("", CheckDocument("error", result.err));
  Json::Value error = Parse(result.err);
  EXPECT_EQ(result.exit, error["exit_code"].asInt());
  return error;
}

}  // namespace tooltest
