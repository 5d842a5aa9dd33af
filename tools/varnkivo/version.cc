// `version`: the version of the tool, and that of the loaded library where it is another one. Touches nothing.
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <cstring>

#include "command_line.h"
#include "output.h"

namespace kivotool {
namespace {

Exit RunVersion(bool json) {
  if (json) {
    Json::Value document = NewDocument();
    document["version"] = VARNKIVO_VERSION;
    document["library_version"] = VARNKIVOVersionGet();
    PrintDocument(document);
  } else {
    std::puts("varnkivo " VARNKIVO_VERSION);
    if (std::strcmp(VARNKIVO_VERSION, VARNKIVOVersionGet()) != 0) std::printf("libvarnkivo %s\n", VARNKIVOVersionGet());
  }
  return kDone;
}

}  // namespace

void AddVersion(Verb app, Invocation& call) {
  app.AddVerb(call, "version", "Print the version", "varnkivo version").OnUse([&call] {
    call.run = [&call] { return RunVersion(call.json); };
  });
}

}  // namespace kivotool
