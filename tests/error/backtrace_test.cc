// Stack frames as lines, with odd frames put in place of the system's.
#include <gtest/gtest.h>
#include <varnkivo/backtrace.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "fake_state.h"

using varnkivo::Backtrace;

namespace {

struct Frames {
  std::vector<const char*> symbols;  // the capture's own first
  bool noArray = false;
};
const Frames* gFrames = nullptr;

}  // namespace

extern "C" int backtrace(void** addresses, int size) {
  if (!gFrames) return testsupport::Next<int(void**, int)>("backtrace")(addresses, size);
  int count = 0;
  while (count < size && count < static_cast<int>(gFrames->symbols.size())) addresses[count++] = nullptr;
  return count;
}

extern "C" char** backtrace_symbols(void* const* addresses, int size) {
  if (!gFrames) return testsupport::Next<char**(void* const*, int)>("backtrace_symbols")(addresses, size);
  if (gFrames->noArray) return nullptr;
  auto** symbols = static_cast<char**>(calloc(static_cast<std::size_t>(size), sizeof(char*)));
  for (int i = 0; i < size; ++i) symbols[i] = const_cast<char*>(gFrames->symbols[static_cast<std::size_t>(i)]);
  return symbols;  // the caller frees the array, not the texts
}

namespace {

using Lines = std::vector<std::string>;

TEST(Backtrace, OddFramesAreKeptReadable) {
  const struct {
    const char* symbol;
    const char* line;
  } cases[] = {
      {"/lib/x.so(_ZN8varnkivo9BacktraceC1Ev+0x1f) [0x7f]", "- varnkivo::Backtrace::Backtrace() +0x1f"},
      {"/bin/a(main+0x10) [0x1]", "- main +0x10"},
      {"/bin/a(+0x10) [0x1]", "-  +0x10"},
      {"/bin/a() [0x1]", "- /bin/a() [0x1]"},
      {"/bin/a(main) [0x1]", "- /bin/a(main) [0x1]"},
      {"/bin/a+b(main+0x2) [0x1]", "- main +0x2"},
      {"/bin/a)b(run+1) [0x1]", "- run +1"},
      {"/bin/a(run+1", "- /bin/a(run+1"},
      {"+0x1) (", "- +0x1) ("},
      {"", "- "},
      {nullptr, "- "},
  };
  Frames frames{{"capture(self+0) [0x0]"}};
  Lines expected;
  for (const auto& row : cases) {
    frames.symbols.push_back(row.symbol);
    expected.push_back(row.line);
  }
  gFrames = &frames;
  EXPECT_EQ(expected, Backtrace().Capture(16));
  EXPECT_EQ(Lines(expected.begin(), expected.begin() + 2), Backtrace().Capture(2));
  std::ostringstream out;
  out << Backtrace(3);
  EXPECT_EQ(expected[0] + "\n" + expected[1] + "\n" + expected[2] + "\n", out.str());
  gFrames = nullptr;
}

TEST(Backtrace, FewOrNoFrames) {
  const Frames none{}, one{{"capture(self+0)"}}, unnamed{{"capture(self+0)", "x"}, true};
  gFrames = &none;
  EXPECT_EQ(Lines{"- empty"}, Backtrace().Capture(16));
  gFrames = &one;
  EXPECT_EQ(Lines{}, Backtrace().Capture(16));
  gFrames = &unnamed;
  EXPECT_EQ(Lines{"- "}, Backtrace().Capture(16));
  gFrames = nullptr;
  EXPECT_EQ(Lines{}, Backtrace().Capture(0));
  EXPECT_EQ(Lines{"- empty"}, Backtrace().Capture(-1));
  EXPECT_EQ(Lines{"- empty"}, Backtrace().Capture(INT32_MIN));
}

__attribute__((noinline)) Lines Deep(int levels) {
  Lines lines = levels > 0 ? Deep(levels - 1) : Backtrace().Capture(16);
  if (lines.empty()) lines.push_back("");  // keeps this call from becoming a jump
  return lines;
}

TEST(Backtrace, RealStackNamesTheCallerFirst) {
  const Lines lines = Deep(40);
  EXPECT_EQ(16u, lines.size());
  for (const auto& line : lines) EXPECT_EQ(0u, line.find("- "));
  EXPECT_EQ(std::string::npos, lines[0].find("Capture")) << lines[0];
  const Backtrace backtrace;
  EXPECT_EQ("varnkivo::Backtrace::Capture(int) const",
            backtrace.FormatFunctionName("_ZNK8varnkivo9Backtrace7CaptureEi"));
  for (const char* plain : {"main", "_Z", "", "_ZN8varn", "i j"}) EXPECT_EQ(plain, backtrace.FormatFunctionName(plain));
}

}  // namespace
