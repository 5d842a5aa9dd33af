// Stack frames as lines, with odd frames put in place of the system's, and the exception that shows them.
#include <gtest/gtest.h>
#include <varnkivo/backtrace.h>
#include <varnkivo/kivo_exception.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>

using varnkivo::Backtrace;
using varnkivo::KivoException;

namespace {

using Lines = std::vector<std::string>;

std::vector<const char*> gFrames;  // the capture's own first
bool gNoArray = false;

}  // namespace

extern "C" int backtrace(void** addresses, int size) {
  const int count = std::min(size, static_cast<int>(gFrames.size()));
  std::fill_n(addresses, count, nullptr);
  return count;
}

extern "C" char** backtrace_symbols(void* const*, int size) {
  if (gNoArray) return nullptr;
  auto** symbols = static_cast<const char**>(calloc(static_cast<std::size_t>(size), sizeof(char*)));
  std::copy_n(gFrames.begin(), size, symbols);
  return const_cast<char**>(symbols);  // the caller frees the array, not the texts
}

namespace {

TEST(Backtrace, OddFramesAreKeptReadable) {
  gFrames = {"capture(self+0) [0x0]",
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
  EXPECT_EQ(expected, Backtrace().Capture(16));
  gNoArray = true;
  EXPECT_EQ(Lines{"- "}, Backtrace().Capture(1));
  gNoArray = false;
  EXPECT_EQ(Lines{}, Backtrace().Capture(0));
  EXPECT_EQ(Lines{"- empty"}, Backtrace().Capture(INT32_MIN));
  gFrames.clear();
  EXPECT_EQ(Lines{"- empty"}, Backtrace().Capture(16));
}

TEST(KivoException, TextIsMessageCodeAndStackAndACopyNestsThatOfItsSource) {
  gFrames = {"capture(self+0) [0x0]", "/bin/a(run+1) [0x1]", "/bin/a(main+2) [0x2]"};
  const std::string stack = "\n- run +1\n- main +2\n";
  const KivoException first(KIVO_ERR_TOKEN, "no 100% luck"), second(first);
  EXPECT_EQ("no 100% luck [code=22]" + stack, first.what());
  EXPECT_EQ(first.what() + (" [code=22]" + stack), second.what());
  EXPECT_EQ(22, second.GetCode());
  EXPECT_EQ("gone [code=24]" + stack, KivoException("gone").what());
  EXPECT_EQ("Failed to get the payment config (url) [code=7]" + stack, KivoException(KIVO_ERR_PAYMENT_CONFIG).what());
}

}  // namespace
