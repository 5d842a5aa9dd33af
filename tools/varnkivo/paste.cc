// Reads what is pasted. Touches standard input, of a terminal all that has been typed: a pasted address that was broken
// into two lines must not end in the shell.
#include "paste.h"

#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>

#include "authorization.h"
#include "failure.h"
#include "text.h"

namespace kivotool {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kLongestLine = 16384;

[[noreturn]] void TooLate(const std::string& again) {
  std::fputc('\n', stderr);
  throw Failure{kFailed,
                std::nullopt,
                "Nothing came back within " + std::to_string(kMinutesToPaste) + " minutes.",
                Retry::kYes,
                "Nothing; nothing was stored.",
                again};
}

/// Waits for input, and on a terminal says each minute how long is left. False: the time is up.
bool AwaitInput(Clock::time_point end) {
  pollfd input = {STDIN_FILENO, POLLIN, 0};
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::seconds>(end - Clock::now()).count();
    if (left <= 0) return false;
    const int wait = static_cast<int>(left % 60 == 0 ? 60 : left % 60);
    const int ready = poll(&input, 1, wait * 1000);
    if (ready > 0) return true;
    if (ready == 0 && isatty(STDIN_FILENO))
      std::fprintf(stderr, "\n(%lld min left) %s", (left - wait) / 60LL, kPastePrompt);
  }
}

bool IsBlank(const std::string& line) { return line.find_first_not_of(" \t\r") == std::string::npos; }

/// The first line with something in it, byte by byte: what follows may be for somebody else. Empty at the end of input.
std::string ReadLine(Clock::time_point end, const std::string& again) {
  std::string line;
  char c = 0;
  while (line.size() < kLongestLine) {
    if (!AwaitInput(end)) TooLate(again);
    if (read(STDIN_FILENO, &c, 1) != 1) break;
    if (c != '\n')
      line += c;
    else if (IsBlank(line))
      line.clear();
    else
      break;
  }
  const bool terminal = isatty(STDIN_FILENO) != 0;
  if (terminal) tcflush(STDIN_FILENO, TCIFLUSH);
  if (!terminal || c != '\n') std::fputc('\n', stderr);  // nobody has ended the line of the prompt
  return line;
}

}  // namespace

std::string PastedCode(const std::string& state, const std::string& again) {
  const auto end = Clock::now() + std::chrono::minutes(kMinutesToPaste);
  for (;;) {
    const std::string line = ReadLine(end, again);
    try {
      return CodeFromPasted(line, state, again);
    } catch (const Failure& failure) {
      if (failure.exit != kUsage || IsBlank(line) || !isatty(STDIN_FILENO)) throw;
      std::fprintf(stderr, "\nvarnkivo: %s\n%s", Printable(failure.cause).c_str(), kPastePrompt);
      std::fflush(stderr);
    }
  }
}

}  // namespace kivotool
