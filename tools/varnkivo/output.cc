// Prints documents and lines. No state besides stdout. A text from outside goes through Utf8 (JSON) or Printable
// (lines); neither depends on the locale, so that the bytes are the same for every user.
#include "output.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "text.h"

namespace kivotool {
namespace {

/// The writer escapes the controls below the space. The others stand inside of texts only, where an escape means the
/// same.
std::string EscapeOtherControls(const std::string& json) {
  std::string out;
  for (std::size_t i = 0; i < json.size(); ++i) {
    unsigned code = 0;
    const std::size_t length = SteeringLength(json, i, code);
    if (length == 0 || code < 0x20) {  // a line's end belongs to the document
      out += json[i];
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", code & 0xFFFFu);
    out += escape;
    i += length - 1;
  }
  return out;
}

std::string Write(const Json::Value& document, const char* indentation) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indentation;
  builder["emitUTF8"] = true;
  builder["precision"] = 15;  // a price as it was: 9.99, not 9.9900000000000002
  return EscapeOtherControls(Json::writeString(builder, document));
}

bool Equals(const char* variable, const char* value) {
  const char* found = std::getenv(variable);
  return found && std::strcmp(found, value) == 0;
}

bool IsSet(const char* variable) {
  const char* found = std::getenv(variable);
  return found && *found;
}

}  // namespace

Json::Value NewDocument() {
  Json::Value document(Json::objectValue);
  document["schema_version"] = 1;
  return document;
}

void SetTime(Json::Value& document, const std::string& name, std::int64_t epoch) {
  const bool known = epoch > 0;
  document[name + "_epoch"] = known ? Json::Value(static_cast<Json::Int64>(epoch)) : Json::Value();
  document[name + "_time"] = known ? TextOrNull(Rfc3339(epoch)) : Json::Value();
}

Json::Value TextOrNull(const std::string& text) { return text.empty() ? Json::Value() : Json::Value(Utf8(text)); }

std::string OneLine(const Json::Value& document) { return Write(document, ""); }

void PrintDocument(const Json::Value& document) { std::printf("%s\n", Write(document, "  ").c_str()); }

void PrintField(const char* label, const std::string& value) {
  std::printf("%-18s %s\n", (std::string(label) + ":").c_str(), value.empty() ? "-" : Printable(value).c_str());
}

void PrintField(const char* label, bool value) { PrintField(label, std::string(value ? "yes" : "no")); }

std::string Ago(std::int64_t epoch, std::int64_t now) {
  if (epoch <= 0) return "never";
  const std::int64_t age = now - epoch;
  const char* words = age < 0 ? "in the future" : age < 86400 ? nullptr : "more than a day ago";
  return Rfc3339(epoch) + " (" + (words ? words : std::to_string(age) + " s ago") + ")";
}

bool StderrIsLively() {
  return isatty(STDERR_FILENO) && !IsSet("NO_COLOR") && !Equals("CLICOLOR", "0") && IsSet("TERM") &&
         !Equals("TERM", "dumb");
}

bool StdoutIsWhole() { return std::fflush(stdout) == 0 && !std::ferror(stdout); }

}  // namespace kivotool
