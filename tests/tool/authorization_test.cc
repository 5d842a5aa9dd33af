// The address of a sign-in by browser, and what may come back from it.
#include "authorization.h"

#include <gmock/gmock.h>

#include "failure.h"

namespace tooltest {
namespace {

using namespace kivotool;

TEST(Authorization, TheAddressHasEveryParameterEscaped) {
  Json::Value config;
  config["auth_endpoint"] = "https://i/a";
  config["client_id"] = "dev ice";
  config["login_redirect_uri"] = "https://a/b?c";
  config["scope"] = "x:$ y";
  config["audience"] = "https://a";
  EXPECT_EQ(
      "https://i/a?response_type=code&client_id=dev%20ice&redirect_uri=https%3A%2F%2Fa%2Fb%3Fc&scope=x%3A%24%20y&"
      "audience=https%3A%2F%2Fa&state=st&code_challenge=c-_&code_challenge_method=S256",
      AuthorizationUrl(config, {"st", "v", "c-_"}));
  const AuthorizationRequest one = NewAuthorizationRequest(), other = NewAuthorizationRequest();
  EXPECT_THAT(one.state, testing::MatchesRegex("[0-9a-f]{32}"));
  EXPECT_THAT(one.verifier, testing::MatchesRegex("[A-Za-z0-9_-]{43}"));
  EXPECT_TRUE(one.state != other.state && one.verifier != other.verifier);
}

TEST(Authorization, OnlyOurOwnAnswerOrABareCodeIsTaken) {
  const struct {
    const char *pasted, *code;
    Exit exit;
  } rows[] = {{"https://a/cb?code=c%20d&state=st", "c d", kDone},
              {"  https://a/cb?state=st&code=c#x \r", "c", kDone},
              {"abc-DEF_1.2~3", "abc-DEF_1.2~3", kDone},
              {"", nullptr, kUsage},
              {"https://a/cb", nullptr, kUsage},
              {"two words", nullptr, kUsage},
              {"https://a/cb?code=c", nullptr, kUsage},
              {"https://a/cb?code=c&state=other", nullptr, kUsage},
              {"https://a/cb?state=st", nullptr, kUsage},
              {"https://a/cb?error=access_denied&state=other", nullptr, kUsage},
              {"https://a/cb?error=access_denied&state=st", nullptr, kRefused}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pasted);
    try {
      const std::string code = CodeFromPasted(row.pasted, "st", "again");
      EXPECT_EQ(kDone, row.exit);
      EXPECT_STREQ(row.code, code.c_str());
    } catch (const Failure& failure) {
      EXPECT_EQ(row.exit, failure.exit);
    }
  }
}

}  // namespace
}  // namespace tooltest
