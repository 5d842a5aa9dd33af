// Takes the members out of a JSON object one by one and tells what is left over: input from people should not be
// half understood.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace kivosim {

class JsonMembers {
 public:
  explicit JsonMembers(const Json::Value& json) : json_(json) {
    if (!json.isObject()) throw std::runtime_error("a JSON object is expected");
  }

  /// Takes the member into `target` if it is there. Throws when it is of another type.
  void Take(const std::string& name, std::string& target) {
    if (const Json::Value* value = Taken(name, &Json::Value::isString, "a text")) target = value->asString();
  }
  void Take(const std::string& name, bool& target) {
    if (const Json::Value* value = Taken(name, &Json::Value::isBool, "true or false")) target = value->asBool();
  }
  void Take(const std::string& name, int& target) {
    if (const Json::Value* value = Taken(name, &Json::Value::isInt, "a number")) target = value->asInt();
  }
  void Take(const std::string& name, double& target) {
    if (const Json::Value* value = Taken(name, &Json::Value::isNumeric, "a number")) target = value->asDouble();
  }
  void Take(const std::string& name, std::uint64_t& target) {
    if (const Json::Value* value = Taken(name, &Json::Value::isUInt64, "a number from 0 up"))
      target = value->asUInt64();
  }
  template <class Optional, class Value = typename Optional::value_type>
  void Take(const std::string& name, Optional& target) {
    if (!json_.isMember(name)) return;
    Value value{};
    Take(name, value);
    target = value;
  }
  Json::Value TakeAny(const std::string& name) { return json_.removeMember(name, &taken_) ? taken_ : Json::Value(); }

  std::size_t Left() const { return json_.size(); }  ///< members not taken yet
  bool Has(const std::string& name) const { return json_.isMember(name); }
  void Require(const std::string& name) const {
    if (!json_.isMember(name)) throw std::runtime_error("\"" + name + "\" is missing");
  }
  /// Throws when something was not taken.
  void End() const {
    if (!json_.empty()) throw std::runtime_error("unknown member \"" + json_.getMemberNames()[0] + "\"");
  }

 private:
  const Json::Value* Taken(const std::string& name, bool (Json::Value::*isRight)() const, const char* wanted) {
    if (!json_.removeMember(name, &taken_)) return nullptr;
    if (!(taken_.*isRight)()) throw std::runtime_error("\"" + name + "\" must be " + wanted);
    return &taken_;
  }

  Json::Value json_, taken_;
};

}  // namespace kivosim
