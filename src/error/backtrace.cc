// Reads the call stack and names its frames. Touches nothing.
// Capture must stay a frame of its own: the first address is taken to be the capture itself.
#include "backtrace.h"

#include <cxxabi.h>
#include <execinfo.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <ostream>

namespace varnkivo {
namespace {

constexpr int kMostFrames = 1024;

struct Freer {
  void operator()(void* memory) const noexcept { std::free(memory); }
};

/// "module(function+offset) [address]" as "- FUNCTION +OFFSET"; any other shape whole.
std::string FormatFrame(const Backtrace& backtrace, const char* symbol) {
  const char* open = std::strchr(symbol, '(');
  const char* plus = open ? std::strchr(open, '+') : nullptr;
  const char* close = plus ? std::strchr(plus, ')') : nullptr;
  if (!close) return std::string("- ") + symbol;
  const std::string mangled(open + 1, plus);
  return "- " + backtrace.FormatFunctionName(mangled.c_str()) + " +" + std::string(plus + 1, close);
}

}  // namespace

Backtrace::Backtrace(int depth) : lines_(Capture(depth)) {}

__attribute__((noinline)) std::vector<std::string> Backtrace::Capture(int depth) const {
  std::vector<void*> addresses(static_cast<std::size_t>(std::clamp(depth, -1, kMostFrames) + 1));
  const int count = addresses.empty() ? 0 : ::backtrace(addresses.data(), static_cast<int>(addresses.size()));
  if (count <= 0) return {"- empty"};
  const std::unique_ptr<char*, Freer> symbols(backtrace_symbols(addresses.data(), count));
  std::vector<std::string> lines;
  for (int frame = 1; frame < count; ++frame) {
    const char* symbol = symbols ? symbols.get()[frame] : nullptr;
    lines.push_back(FormatFrame(*this, symbol ? symbol : ""));
  }
  return lines;
}

void Backtrace::EachLine(std::function<void(const std::string&)> fn) const {
  for (const std::string& line : lines_) fn(line);
}

std::string Backtrace::FormatFunctionName(const char* mangled) const {
  int status = 0;
  const std::unique_ptr<char, Freer> name(abi::__cxa_demangle(mangled, nullptr, nullptr, &status));
  return status == 0 && name ? name.get() : mangled;
}

std::ostream& operator<<(std::ostream& out, const Backtrace& backtrace) {
  backtrace.EachLine([&out](const std::string& line) { out << line << '\n'; });
  return out;
}

}  // namespace varnkivo
