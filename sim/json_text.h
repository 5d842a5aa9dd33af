// JSON documents to and from text, in one line.
#pragma once

#include <json/json.h>

#include <string>

namespace kivosim {

std::string JsonText(const Json::Value& value);
/// Throws std::runtime_error naming the fault; nothing may follow the document.
Json::Value ParseJson(const std::string& text);

}  // namespace kivosim
