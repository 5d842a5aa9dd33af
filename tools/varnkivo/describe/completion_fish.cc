// The completion of fish: one line a verb and option, each bound to the verb before it. After
// "--" comes a program of its own.
#include "definition.h"

namespace kivotool {
namespace {

std::string Quoted(const std::string& text) { return "'" + Replaced(Replaced(text, "\\", "\\\\"), "'", "\\'") + "'"; }

std::string OptionLine(const OptionText& option) {
  std::string line;
  for (const std::string& name : option.names)
    line += name.rfind("--", 0) == 0 ? " -l " + name.substr(2) : " -s " + name.substr(1);
  if (option.TakesFile()) return line + " -r -F";
  if (!option.choices.empty()) return line + " -x -a " + Quoted(Joined(option.choices, " "));
  return option.takesValue ? line + " -x" : line;
}

}  // namespace

std::string FishCompletion(const VerbText& root) {
  std::string paths, lines;
  for (const VerbText* verb : Flatten(root)) {
    if (!verb->path.empty()) paths += " " + Quoted(verb->path);
    const std::string begin = "complete -c varnkivo -n \"__varnkivo_at " + Quoted(verb->path) + "\"";
    for (const VerbText& below : verb->verbs)
      lines += begin + " -a " + below.LastWord() + " -d " + Quoted(below.description) + "\n";
    for (const OptionText& option : verb->options)
      if (!option.positional) lines += begin + OptionLine(option) + " -d " + Quoted(option.description) + "\n";
  }
  return "# fish completion for varnkivo, made from its own options\n"
         "function __varnkivo_at\n"
         "    set -l verb ''\n"
         "    for word in (commandline -opc)[2..-1]\n"
         "        set -l next (string trim -- \"$verb $word\")\n"
         "        contains -- $next" +
         paths +
         "; and set verb $next\n"
         "    end\n"
         "    test \"$verb\" = \"$argv[1]\"\n"
         "end\n"
         "complete -c varnkivo -f\n"
         "complete -c varnkivo -n 'contains -- -- (commandline -opc)' -F -a '(__fish_complete_command)'\n" +
         lines;
}

}  // namespace kivotool
