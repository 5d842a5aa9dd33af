// A checker for the part of JSON Schema that the shipped schemas use.
#pragma once

#include <json/json.h>

#include <string>

namespace tooltest {

/// Empty when `text` is one JSON document that the schema `name` ("status") allows; else what is wrong, with its place.
/// A keyword that the checker does not know is wrong too: no part of a schema goes unchecked.
std::string CheckDocument(const std::string& name, const std::string& text);

/// The one JSON document in `text`; null and a test failure when there is none.
Json::Value Parse(const std::string& text);

}  // namespace tooltest
