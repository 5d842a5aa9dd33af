// `version`: the version of the tool and of the library it was built for, which are the same. Touches nothing.
#include <varnkivo/varnkivo.h>

#include <cstdio>

#include "command_line.h"
#include "output.h"

namespace kivotool {
namespace {

Exit RunVersion(bool json) {
  if (json) {
    Json::Value document = NewDocument();
    document["version"] = VARNKIVO_VERSION;
    PrintDocument(document);
  } else {
    std::puts("varnkivo " VARNKIVO_VERSION);
  }
  return kDone;
}

}  // namespace

void AddVersion(CLI::App& app, Invocation& call) {
  AddVerb(app, call, "version", "Print the version", "varnkivo version")->callback([&call] {
    call.run = [&call] { return RunVersion(call.json); };
  });
}

}  // namespace kivotool
