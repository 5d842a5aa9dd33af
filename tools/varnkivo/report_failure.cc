// Prints a failure, as text or as one line of JSON. No state. What comes from outside goes through Printable before it
// reaches a terminal.
#include <cstdio>

#include "failure.h"
#include "output.h"
#include "text.h"

namespace kivotool {
namespace {

const char* RetryText(Retry retry) {
  switch (retry) {
    case Retry::kYes:
      return "helps";
    case Retry::kNo:
      return "does not help";
    case Retry::kPerhaps:
      return "may help";
  }
  return "may help";
}

const char* RetryWord(Retry retry) {
  switch (retry) {
    case Retry::kYes:
      return "yes";
    case Retry::kNo:
      return "no";
    case Retry::kPerhaps:
      return "perhaps";
  }
  return "perhaps";
}

}  // namespace

std::string ToJsonLine(const Failure& failure) {
  Json::Value document = NewDocument();
  document["exit_code"] = static_cast<int>(failure.exit);
  document["kind"] = ExitName(failure.exit);
  document["library_code"] = failure.libraryCode ? Json::Value(*failure.libraryCode) : Json::Value();
  document["cause"] = Utf8(failure.cause);
  document["retry_helps"] = RetryWord(failure.retry);
  document["device_next"] = Utf8(failure.deviceNext);
  document["run"] = Utf8(failure.run);
  return OneLine(document);
}

void Report(const Failure& failure, bool json) {
  if (json) {
    std::fprintf(stderr, "%s\n", ToJsonLine(failure).c_str());
    return;
  }
  const bool colour = StderrIsLively();
  std::fprintf(stderr, "%svarnkivo: %s%s\n", colour ? "\033[1;31m" : "", Printable(failure.cause).c_str(),
               colour ? "\033[0m" : "");
  std::fprintf(stderr, "  A retry:     %s\n", RetryText(failure.retry));
  std::fprintf(stderr, "  The device:  %s\n", Printable(failure.deviceNext).c_str());
  std::fprintf(stderr, "  Run:         %s\n", Printable(failure.run).c_str());
}

}  // namespace kivotool
