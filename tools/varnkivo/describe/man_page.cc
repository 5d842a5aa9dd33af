// varnkivo(1) in the language of man(7). The words are those of --help; only what belongs to the program as a whole is
// written here.
#include "definition.h"

namespace kivotool {
namespace {

/// Every line of running text goes through this: a dot or a quote in front would be a request.
std::string Escaped(const std::string& text) {
  std::string line = Replaced(Replaced(text, "\\", "\\e"), "-", "\\-");
  if (!line.empty() && (line[0] == '.' || line[0] == '\'')) line.insert(0, "\\&");
  return line;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
    lines.push_back(text.substr(begin, end - begin));
  if (begin < text.size()) lines.push_back(text.substr(begin));
  return lines;
}

/// The text under a --help: indented lines are examples and keep their layout.
std::string Footer(const std::string& footer) {
  std::string page;
  bool example = false;
  for (const std::string& line : Lines(footer)) {
    const bool indented = line.rfind("  ", 0) == 0;
    if (indented != example) page += indented ? ".RS 4\n.nf\n" : ".fi\n.RE\n";
    example = indented;
    page += line.empty() ? ".PP\n" : Escaped(indented ? line.substr(2) : line) + "\n";
  }
  return page + (example ? ".fi\n.RE\n" : "");
}

std::string OptionEntry(const OptionText& option) {
  std::string head = "\\fB" + Escaped(Joined(option.names, "\\fR, \\fB")) + "\\fR";
  head = Replaced(head, "\\efR", "\\fR");
  head = Replaced(head, "\\efB", "\\fB");
  if (option.takesValue && !option.positional) head += " \\fI" + Escaped(option.ValueName()) + "\\fR";
  return ".TP\n" + head + "\n" + Escaped(option.description) + "\n";
}

std::string Section(const VerbText& verb) {
  std::string page = ".SS \"" + Escaped("varnkivo " + verb.path) + "\"\n" + Escaped(verb.description) + ".\n";
  for (const OptionText& option : verb.options) {
    if (option.names.back() != "--help") page += OptionEntry(option);
  }
  return page + (verb.footer.empty() ? "" : ".PP\n" + Footer(verb.footer));
}

}  // namespace

std::string ManPage(const VerbText& root, const std::string& version) {
  std::string page = ".TH VARNKIVO 1 \"\" \"varnkivo " + version + "\" \"User Commands\"\n";
  page += ".SH NAME\nvarnkivo \\- connect this device to its Kivo account\n";
  page += ".SH SYNOPSIS\n\\fBvarnkivo\\fR \\fIVERB\\fR [\\fIOPTION\\fR...]\n";
  page += ".SH DESCRIPTION\n" + Escaped(root.description) +
          "\nData goes to standard output, everything else to standard error. Most verbs need root or the account\n"
          "service, because the account record is private to it.\n";
  page += ".SH OPTIONS\n";
  for (const OptionText& option : root.options) page += OptionEntry(option);
  page += ".SH VERBS\n";
  for (const VerbText* verb : Flatten(root)) {
    if (!verb->path.empty()) page += Section(*verb);
  }
  page += ".SH EXAMPLES AND EXIT STATUS\n" + Footer(root.footer);
  page += ".SH FILES\n";
  const struct {
    const char *path, *what;
  } files[] = {{"/usr/varn/etc/varnholt-account/private", "The account record and the tokens, of owner 934"},
               {"/usr/varn/var/lib/varnkivo", "What the tool remembers"},
               {"/usr/varn/etc.defaults/varnholt-account/config", "The settings of the sign-in"},
               {"/etc/cron.d/kivo", "The report job, while somebody is signed in"}};
  for (const auto& file : files) page += ".TP\n\\fI" + Escaped(file.path) + "\\fR\n" + file.what + "\n";
  return page;
}

}  // namespace kivotool
