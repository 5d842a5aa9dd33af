// The two ways of saying something: data on stdout (lines or one JSON document), everything else on stderr.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <string>

namespace kivotool {

/// An object with "schema_version": what every document starts as.
Json::Value NewDocument();
/// Sets NAME_time (RFC 3339, UTC) and NAME_epoch; both null when `epoch` is 0 or less.
void SetTime(Json::Value& document, const std::string& name, std::int64_t epoch);
/// The text, or null when it is empty.
Json::Value TextOrNull(const std::string& text);

/// `document` on one line, UTF-8 as it stands rather than escaped.
std::string OneLine(const Json::Value& document);
/// Prints `document` on stdout, indented.
void PrintDocument(const Json::Value& document);
/// Prints "LABEL:   VALUE" on stdout; an empty value shows as "-".
void PrintField(const char* label, const std::string& value);
void PrintField(const char* label, bool value);
/// The time in UTC and how long ago it was; "never" for 0 or less.
std::string Ago(std::int64_t epoch, std::int64_t now);

/// Whether stderr is a terminal that wants colour and movement: NO_COLOR, CLICOLOR=0, TERM=dumb and a pipe say no.
bool StderrIsLively();
/// Whether everything printed has reached stdout.
bool StdoutIsWhole();

}  // namespace kivotool
