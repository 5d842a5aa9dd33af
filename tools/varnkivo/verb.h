// A verb of the command line, while its options are put together. CLI11 does the work behind this header: it is
// compiled once, and not once for each verb.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "failure.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace kivotool {

/// What the command line asked for; a verb's callback fills `run`, main calls it.
struct Invocation {
  bool json = false;
  std::vector<std::string> program;  ///< every word after the first "--", as it came
  bool takesProgram = false;         ///< set by the verb that wants them
  bool silent = false;               ///< set by the verb that prints nothing, not even when it is interrupted
  std::function<Exit()> run;
};

/// An option of a verb. Copies are the same option.
class Option {
 public:
  explicit Option(CLI::Option* option) : option_(option) {}

  Option Required() const;
  Option Excludes(Option other) const;
  Option Needs(Option other) const;
  Option OneOf(const std::vector<std::string>& words) const;
  Option Described(const std::string& help) const;

 private:
  CLI::Option* option_;
};

/// What an option's words go into must live as long as the verb. Copies are the same verb.
class Verb {
 public:
  explicit Verb(CLI::App& app) : app_(&app) {}

  /// One with "--json" and an example under its help.
  Verb AddVerb(Invocation& call, const std::string& name, const std::string& description,
               const std::string& example) const;
  /// A word in front of verbs of its own.
  Verb AddGroup(const std::string& name, const std::string& description, const std::string& example) const;

  Option Flag(const std::string& names, bool& wanted, const std::string& help) const;
  Option Text(const std::string& names, std::string& value, const std::string& help) const;
  Option Text(const std::string& names, std::optional<std::string>& value, const std::string& help) const;
  /// May be given again and again; brackets in a value are its own.
  Option Texts(const std::string& names, std::vector<std::string>& values, const std::string& help) const;
  /// A whole number from 0 to `most`.
  Option Seconds(const std::string& names, std::int64_t& value, std::int64_t most, const std::string& help) const;
  /// `type` names the value in the help.
  Option Text(const std::string& names, const std::function<void(const std::string&)>& take, const std::string& type,
              const std::string& help) const;
  Option Json() const;  ///< the one that AddVerb has added

  /// Called once the whole command line has been read, where this verb was given.
  void OnUse(const std::function<void()>& use) const;
  /// Whether a verb below this one was given.
  bool HasVerb() const;

 private:
  CLI::App* app_;
};

/// Ends the reading of the command line.
[[noreturn]] void RefuseUsage(const std::string& complaint);

}  // namespace kivotool
