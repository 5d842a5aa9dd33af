// varnkivo-describe: writes the man page or a completion of the tool into a file. Run by the build only; linked with
// the tool's own command line, so that none of them can differ from --help.
#include <varnkivo/varnkivo.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <fstream>

#include "../command_line.h"
#include "definition.h"

namespace {

std::string Text(const kivotool::VerbText& root, const char* kind) {
  if (std::strcmp(kind, "man") == 0) return kivotool::ManPage(root, VARNKIVO_VERSION);
  if (std::strcmp(kind, "bash") == 0) return kivotool::BashCompletion(root);
  if (std::strcmp(kind, "zsh") == 0) return kivotool::ZshCompletion(root);
  if (std::strcmp(kind, "fish") == 0) return kivotool::FishCompletion(root);
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app;
  kivotool::Invocation call;
  kivotool::DefineCommandLine(app, call);
  const std::string text = argc == 3 ? Text(kivotool::Describe(app), argv[1]) : "";
  if (text.empty()) {
    std::fputs("usage: varnkivo-describe man|bash|zsh|fish FILE\n", stderr);
    return 2;
  }
  std::ofstream file(argv[2], std::ios::binary);
  return file << text << std::flush ? 0 : 1;
}
