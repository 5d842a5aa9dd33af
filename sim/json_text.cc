// jsoncpp, set to write without white space and to read strictly.
#include "sim/json_text.h"

#include <memory>
#include <stdexcept>

namespace kivosim {

std::string JsonText(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["precision"] = 15;  // more would write a price of 9.99 as 9.9900000000000002
  return Json::writeString(builder, value);
}

Json::Value ParseJson(const std::string& text) {
  Json::CharReaderBuilder builder;
  builder["allowComments"] = false;
  builder["failIfExtra"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string problem;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, &problem))
    throw std::runtime_error("not JSON: " + problem);
  return value;
}

}  // namespace kivosim
