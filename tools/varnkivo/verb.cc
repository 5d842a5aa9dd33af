// The only place of the tool that adds options to CLI11's.
#include "verb.h"

#include <CLI/CLI.hpp>

namespace kivotool {

Option Option::Required() const { return Option(option_->required()); }
Option Option::Excludes(Option other) const { return Option(option_->excludes(other.option_)); }
Option Option::Needs(Option other) const { return Option(option_->needs(other.option_)); }
Option Option::OneOf(const std::vector<std::string>& words) const {
  return Option(option_->check(CLI::IsMember(words)));
}
Option Option::Described(const std::string& help) const { return Option(option_->description(help)); }

Verb Verb::AddVerb(Invocation& call, const std::string& name, const std::string& description,
                   const std::string& example) const {
  CLI::App* verb = app_->add_subcommand(name, description);
  verb->footer("Example:\n  " + example);
  verb->add_flag("--json", call.json, "Print one JSON document; an error is one JSON object on stderr");
  return Verb(*verb);
}

Verb Verb::AddGroup(const std::string& name, const std::string& description, const std::string& example) const {
  CLI::App* group = app_->add_subcommand(name, description);
  group->require_subcommand(1);
  group->footer("Example:\n  " + example);
  return Verb(*group);
}

Option Verb::Flag(const std::string& names, bool& wanted, const std::string& help) const {
  return Option(app_->add_flag(names, wanted, help));
}

Option Verb::Text(const std::string& names, std::string& value, const std::string& help) const {
  return Option(app_->add_option(names, value, help));
}

Option Verb::Text(const std::string& names, std::optional<std::string>& value, const std::string& help) const {
  return Option(app_->add_option(names, value, help));
}

Option Verb::Texts(const std::string& names, std::vector<std::string>& values, const std::string& help) const {
  return Option(app_->add_option(names, values, help)->allow_extra_args(false));  // else "[a,b]" would be taken apart
}

Option Verb::Seconds(const std::string& names, std::int64_t& value, std::int64_t most, const std::string& help) const {
  const auto complaint = [most](const std::string& text) {
    const bool isNumber = !text.empty() && text.size() <= 18 && text.find_first_not_of("0123456789") == text.npos;
    const bool isGood = isNumber && std::stoll(text) <= most;
    return isGood ? "" : "\"" + text + "\" is not a number of seconds from 0 to " + std::to_string(most);
  };
  return Option(app_->add_option(names, value, help)->check(CLI::Validator(complaint, "SECONDS")));
}

Option Verb::Text(const std::string& names, const std::function<void(const std::string&)>& take,
                  const std::string& type, const std::string& help) const {
  return Option(app_->add_option_function<std::string>(names, take, help)->type_name(type));
}

Option Verb::Json() const { return Option(app_->get_option("--json")); }

void Verb::OnUse(const std::function<void()>& use) const { app_->callback(use); }

bool Verb::HasVerb() const { return !app_->get_subcommands().empty(); }

void RefuseUsage(const std::string& complaint) { throw CLI::ValidationError(complaint); }

}  // namespace kivotool
