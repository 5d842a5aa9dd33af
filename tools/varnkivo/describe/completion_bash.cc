// The completion of bash: one function that finds the verb typed so far and offers what may follow it.
// After "--" comes a program of its own.
#include "definition.h"

namespace kivotool {
namespace {

std::string Offered(const VerbText& verb) {
  std::vector<std::string> words;
  for (const VerbText& below : verb.verbs) words.push_back(below.LastWord());
  for (const OptionText& option : verb.options) {
    if (!option.positional) words.insert(words.end(), option.names.begin(), option.names.end());
  }
  return Joined(words, " ");
}

std::string ValueCase(const VerbText& verb, const OptionText& option) {
  std::vector<std::string> patterns;
  for (const std::string& name : option.names) patterns.push_back("'" + verb.path + " " + name + "'");
  std::string action = "COMPREPLY=(); return";
  if (option.TakesFile()) action = "mapfile -t COMPREPLY < <(compgen -f -- \"$typed\"); return";
  if (!option.choices.empty()) action = "words='" + Joined(option.choices, " ") + "'";
  return "    " + Joined(patterns, "|") + ") " + action + " ;;\n";
}

}  // namespace

std::string BashCompletion(const VerbText& root) {
  std::string verbs, values, words;
  for (const VerbText* verb : Flatten(root)) {
    if (!verb->path.empty()) verbs += (verbs.empty() ? "'" : "|'") + verb->path + "'";
    words += "      '" + verb->path + "') words='" + Offered(*verb) + "' ;;\n";
    for (const OptionText& option : verb->options) {
      if (option.takesValue && !option.positional) values += ValueCase(*verb, option);
    }
  }
  return "# bash completion for varnkivo, made from its own options\n"
         "_varnkivo() {\n"
         "  local typed=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} verb='' words='' i next\n"
         "  if [ \"$before\" = -- ]; then mapfile -t COMPREPLY < <(compgen -c -- \"$typed\"); return; fi\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    next=\"${verb:+$verb }${COMP_WORDS[i]}\"\n"
         "    case $next in " +
         verbs +
         ") verb=$next ;; *' --') mapfile -t COMPREPLY < <(compgen -f -- \"$typed\"); return ;; esac\n"
         "  done\n"
         "  case \"$verb $before\" in\n" +
         values +
         "  esac\n"
         "  if [ -z \"$words\" ]; then\n"
         "    case $verb in\n" +
         words +
         "    esac\n"
         "  fi\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$typed\")\n"
         "}\n"
         "complete -F _varnkivo varnkivo\n";
}

}  // namespace kivotool
