// The completion of zsh: the same walk, with descriptions. After "--" comes a program of its own.
#include "definition.h"

namespace kivotool {
namespace {

/// One element of the arrays of _describe.
std::string Element(const std::string& name, const std::string& description) {
  return " '" + Replaced(Replaced(name, ":", "\\:") + ":" + Replaced(description, "\\", "\\\\"), "'", "'\\''") + "'";
}

std::string Arrays(const VerbText& verb) {
  std::string verbs, options;
  for (const VerbText& below : verb.verbs) verbs += Element(below.LastWord(), below.description);
  for (const OptionText& option : verb.options) {
    if (option.positional) continue;
    for (const std::string& name : option.names) options += Element(name, option.description);
  }
  return "    ('" + verb.path + "') verbs=(" + verbs + " ); options=(" + options + " ) ;;\n";
}

std::string ValueCase(const VerbText& verb, const OptionText& option) {
  std::vector<std::string> patterns;
  for (const std::string& name : option.names) patterns.push_back("'" + verb.path + " " + name + "'");
  std::string action = "_message value";
  if (option.TakesFile()) action = "_files";
  if (!option.choices.empty()) action = "compadd -- " + Joined(option.choices, " ");
  return "    (" + Joined(patterns, "|") + ") " + action + "; return ;;\n";
}

}  // namespace

std::string ZshCompletion(const VerbText& root) {
  std::string verbs, values, arrays;
  for (const VerbText* verb : Flatten(root)) {
    if (!verb->path.empty()) verbs += (verbs.empty() ? "'" : "|'") + verb->path + "'";
    arrays += Arrays(*verb);
    for (const OptionText& option : verb->options) {
      if (option.takesValue && !option.positional) values += ValueCase(*verb, option);
    }
  }
  return "#compdef varnkivo\n"
         "# Made from the tool's own options.\n"
         "_varnkivo() {\n"
         "  local verb='' word next\n"
         "  local -a verbs options\n"
         "  integer dashes=${words[(i)--]}\n"
         "  if (( dashes < CURRENT )); then shift dashes words; (( CURRENT -= dashes )); _normal; return; fi\n"
         "  for word in ${words[2,CURRENT-1]}; do\n"
         "    next=\"${verb:+$verb }$word\"\n"
         "    case $next in (" +
         verbs +
         ") verb=$next ;; esac\n"
         "  done\n"
         "  case \"$verb $words[CURRENT-1]\" in\n" +
         values + "  esac\n" + "  case $verb in\n" + arrays +
         "  esac\n"
         "  (( $#verbs )) && _describe verb verbs\n"
         "  _describe -o option options\n"
         "}\n"
         "_varnkivo \"$@\"\n";
}

}  // namespace kivotool
