// printf-style formatting into a string, with each list of arguments that the classes use.
#include <cpr/error.h>
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "internal/string_utils.h"

using testsupport::FakePlatform;
using varnkivo::format;

namespace {

TEST(Format, ArgumentListsOfTheClasses) {
  FakePlatform device;
  const std::string large(5000, 'x');
  EXPECT_EQ("/tmp/account_lum.lock", format("/tmp/account_%s.lock", "lum"));
  EXPECT_EQ("", format("%s", ""));
  EXPECT_EQ("<" + large + ">", format("<%s>", large.c_str()));
  EXPECT_EQ("reqcode=0, reqmsg=none", format("reqcode=%d, reqmsg=%s", cpr::ErrorCode::OK, "none"));
  EXPECT_EQ("code=503, resp=down", format("code=%d, resp=%s", 503, "down"));
  EXPECT_EQ("https://h 0 none", format("%s %d %s", "https://h", cpr::ErrorCode::OK, "none"));
  EXPECT_EQ("https://h 404 %s 100%", format("%s %d %s 100%%", "https://h", 404, "%s"));
  EXPECT_TRUE(device.Lines().empty());
}

TEST(Format, AFailingFormatIsLoggedAndGivesAnEmptyText) {
  FakePlatform device;
  EXPECT_EQ("", format("%2147483648d%s", 1, "wider than any text can be"));
  EXPECT_EQ("Failed to format: %2147483648d%s", device.LastLog());
  EXPECT_EQ("..//include/internal/string_utils", device.LastLogSource());
}

}  // namespace
