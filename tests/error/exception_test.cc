// The exception of the classes: its text, its code and what a copy of it says.
#include <gtest/gtest.h>
#include <varnkivo/kivo_exception.h>

#include <string>
#include <type_traits>

using varnkivo::KivoException;

namespace {

static_assert(std::is_base_of_v<std::exception, KivoException>);
static_assert(std::is_copy_constructible_v<KivoException>);
static_assert(!std::is_copy_assignable_v<KivoException>, "two owners of one implementation would free it twice");

int CountLines(const std::string& text, const std::string& start) {
  int count = 0;
  for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1)
    count += text.compare(at, start.size(), start) == 0;
  return count;
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
      {KivoException(KIVO_ERR_UNKNOWN), 24, "System error [code=24]\n- "},
      {KivoException(static_cast<KIVO_ERRCODE>(0), ""), 0, " [code=0]\n- "},
  };
  for (const auto& row : cases) {
    const std::string what = row.exception.what();
    EXPECT_EQ(row.code, row.exception.GetCode());
    EXPECT_EQ(0u, what.find(row.firstLine)) << what;
    EXPECT_EQ('\n', what.back());
    const int frames = CountLines(what, "- ");
    EXPECT_GE(frames, 3);
    EXPECT_LE(frames, 16);
  }
}

TEST(KivoException, CopyNestsTheWholeTextOfItsSource) {
  const KivoException first(KIVO_ERR_TOKEN, "gone");
  const KivoException copy(first);
  const KivoException second(copy);
  const std::string before = first.what(), after = copy.what();
  EXPECT_EQ(22, copy.GetCode());
  EXPECT_EQ(0u, after.find(before + " [code=22]\n- ")) << after;
  EXPECT_EQ(0u, std::string(second.what()).find(after + " [code=22]\n- "));
  EXPECT_EQ(before, first.what());
  try {
    throw KivoException(KIVO_ERR_AUTH, "x");
  } catch (const std::exception& caught) {
    EXPECT_EQ(0u, std::string(caught.what()).find("x [code=14]\n"));
  }
}

}  // namespace
