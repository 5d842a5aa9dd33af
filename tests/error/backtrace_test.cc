// Stack frames as lines, with odd frames put in place of the system's, and the exception that shows them.
#include <gmock/gmock.h>
#include <varnkivo/backtrace.h>
#include <varnkivo/kivo_exception.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "fake_state.h"

using testing::StartsWith;
using varnkivo::Backtrace;
using varnkivo::KivoException;

namespace {

using Lines = std::vector<std::string>;

const std::vector<const char*>* gFrames = nullptr;  // the capture's own first; null: the real ones
bool gNoArray = false;

}  // namespace

extern "C" int backtrace(void** addresses, int size) {
  if (!gFrames) {  // the frames above the caller's would not be there without the test, or without a sanitizer
    constexpr int kMostAbove = 4;
    std::vector<void*> all(static_cast<std::size_t>(size) + kMostAbove);
    const int count = testsupport::Next<int(void**, int)>("backtrace")(all.data(), size + kMostAbove);
    const auto first = std::find(all.begin(), all.begin() + count, __builtin_return_address(0));
    const int kept = std::min(size, static_cast<int>(all.begin() + count - first));
    std::copy_n(first, kept, addresses);
    return kept;
  }
  const int count = std::min(size, static_cast<int>(gFrames->size()));
  std::fill_n(addresses, count, nullptr);
  return count;
}

extern "C" char** backtrace_symbols(void* const* addresses, int size) {
  if (!gFrames) return testsupport::Next<char**(void* const*, int)>("backtrace_symbols")(addresses, size);
  if (gNoArray) return nullptr;
  auto** symbols = static_cast<const char**>(calloc(static_cast<std::size_t>(size), sizeof(char*)));
  std::copy_n(gFrames->begin(), size, symbols);
  return const_cast<char**>(symbols);  // the caller frees the array, not the texts
}

namespace {

TEST(Backtrace, OddFramesAreKeptReadable) {
  const std::vector<const char*> symbols = {"capture(self+0) [0x0]",
                                            "/lib/x.so(_ZN8varnkivo9BacktraceC1Ev+0x1f) [0x7f]",
                                            "/bin/a(+0x10) [0x1]",
                                            "/bin/a(main) [0x1]",
                                            "/bin/a)b(run+1) [0x1]",
                                            "/bin/a(run+1",
                                            "",
                                            nullptr};
  const Lines expected = {"- varnkivo::Backtrace::Backtrace() +0x1f",
                          "-  +0x10",
                          "- /bin/a(main) [0x1]",
                          "- run +1",
                          "- /bin/a(run+1",
                          "- ",
                          "- "};
  gFrames = &symbols;
  EXPECT_EQ(expected, Backtrace().Capture(16));
  std::ostringstream out;
  out << Backtrace(2);
  EXPECT_EQ(expected[0] + "\n" + expected[1] + "\n", out.str());
  gNoArray = true;
  EXPECT_EQ(Lines{"- "}, Backtrace().Capture(1));
  gNoArray = false;
  const std::vector<const char*> none;
  gFrames = &none;
  EXPECT_EQ(Lines{"- empty"}, Backtrace().Capture(16));
  gFrames = nullptr;
  EXPECT_EQ(Lines{}, Backtrace().Capture(0));
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
  EXPECT_EQ(std::string::npos, lines[0].find("Capture")) << lines[0];
}

TEST(KivoException, TextIsMessageCodeAndStack) {
  const struct {
    KivoException exception;
    int code;
    const char* firstLine;
  } cases[] = {
      {KivoException(KIVO_ERR_SEND, "Failed to send"), 4, "Failed to send [code=4]\n- "},
      {KivoException("no 100% luck"), 24, "no 100% luck [code=24]\n- "},
      {KivoException(KIVO_ERR_PAYMENT_CONFIG), 7, "Failed to get the payment config (url) [code=7]\n- "},
  };
  for (const auto& row : cases) {
    const std::string what = row.exception.what();
    EXPECT_EQ(row.code, row.exception.GetCode());
    EXPECT_THAT(what, StartsWith(row.firstLine));
    const auto lines = std::count(what.begin(), what.end(), '\n');
    EXPECT_TRUE(lines >= 4 && lines <= 17 && what.back() == '\n') << what;
  }
}

TEST(KivoException, CopyNestsTheWholeTextOfItsSource) {
  const KivoException first(KIVO_ERR_TOKEN, "gone");
  const KivoException copy(first), second(copy);
  EXPECT_EQ(22, copy.GetCode());
  EXPECT_THAT(copy.what(), StartsWith(std::string(first.what()) + " [code=22]\n- "));
  EXPECT_THAT(second.what(), StartsWith(std::string(copy.what()) + " [code=22]\n- "));
}

}  // namespace
