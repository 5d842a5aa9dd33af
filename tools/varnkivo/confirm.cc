// Asks on the terminal. Reads one line byte by byte: a buffered read would swallow the secret that may follow.
#include "confirm.h"

#include <unistd.h>

#include <cstdio>

#include "failure.h"
#include "text.h"

namespace kivotool {
namespace {

std::string ReadLine() {
  std::string line;
  for (char c = 0; read(STDIN_FILENO, &c, 1) == 1 && c != '\n';) line += c;
  return line;
}

}  // namespace

void Confirm(const std::string& question, bool yes, const std::string& again) {
  if (yes) return;
  if (!isatty(STDIN_FILENO)) {
    throw UsageFailure(question + " Without a terminal that takes --yes.", again);
  }
  std::fprintf(stderr, "%s Go on? [y/N] ", Printable(question).c_str());
  std::fflush(stderr);
  const std::string answer = ReadLine();
  if (answer == "y" || answer == "Y" || answer == "yes") return;
  throw Failure{kFailed, std::nullopt, "Not confirmed.", Retry::kNo, "Nothing; nothing was changed.", again};
}

}  // namespace kivotool
