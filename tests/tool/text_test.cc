// Texts on their way out, asked directly: encodings that a server or a file may hold.
#include "text.h"

#include <gtest/gtest.h>

namespace kivotool {
namespace {

TEST(Text, OnlyValidUtf8Remains) {
  const std::string bad = "\xEF\xBF\xBD";
  const struct {
    std::string in, out;
  } texts[] = {{"plain \xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80", "plain \xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80"},
               {"\xFF"
                "a",
                bad + "a"},
               {"\xC3", bad},  // cut short
               {"\xE2\x82", bad + bad},
               {"\xC0\xAF", bad + bad},                       // overlong
               {"\xED\xA0\x80", bad + bad + bad},             // a surrogate
               {"\xF4\x90\x80\x80", bad + bad + bad + bad}};  // past U+10FFFF
  for (const auto& text : texts) EXPECT_EQ(text.out, Utf8(text.in));
}

TEST(Text, ControlCharactersAreShownNotObeyed) {
  EXPECT_EQ("a\\x1b[2Jb\\x0a\\x7f\\x9b\xC2\xA0", Printable("a\033[2Jb\n\x7F\xC2\x9B\xC2\xA0"));
}

TEST(Text, AWordForTheShellIsOneWord) {
  EXPECT_EQ("ann+x@example.com", ShellWord("ann+x@example.com"));
  EXPECT_EQ("'a;b $(c) '\\''d'\\'''", ShellWord("a;b $(c) 'd'"));
  EXPECT_EQ("''", ShellWord(""));
}

TEST(Text, TimesAreRfc3339InUtc) {
  EXPECT_EQ("2026-11-21T14:00:00Z", Rfc3339(1795269600));
  EXPECT_EQ("2038-01-19T03:14:08Z", Rfc3339(2147483648));
  EXPECT_EQ("", Rfc3339(9223372036854775807));
}

}  // namespace
}  // namespace kivotool
