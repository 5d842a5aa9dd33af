// Signing in by browser: what is taken for an answer, and how the device stands when it comes to nothing.
#include <unistd.h>
#include <varnkivo/user.h>

#include <csignal>
#include <filesystem>
#include <regex>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kTokenPath[] = "oauth2/token";
constexpr char kAuthKeyPath[] = "oauth2/api/v1/device/core/authkey/exchange";
constexpr char kRedirectUri[] = "https://account.kivo.example/device/login/callback";

class BrowserLogin : public ToolTest {
 protected:
  /// `login` on a terminal, that has shown its address.
  class Attempt : public ToolProcess {
   public:
    Attempt() : ToolProcess({{"login"}, "", {"TERM=dumb"}, true}) {
      EXPECT_TRUE(WaitFor("You have 10 minutes"));
      std::smatch found;
      const std::regex parts("code_challenge=([A-Za-z0-9_-]+)");
      EXPECT_TRUE(std::regex_search(Shown(), found, parts)) << Shown();
      code = Cloud().IssueCode(kEmail, "kivo-device", kSerial, kRedirectUri, found[1]);
      EXPECT_TRUE(std::regex_search(Shown(), found, std::regex("state=([0-9a-f]+)"))) << Shown();
      state = found[1];
    }
    Result Answer(const std::string& line) {
      TypeMore(line + "\n");
      return Wait();
    }

    std::string code, state;
  };

  /// No record, no token, not even a half written one, and no job. The device's API key is not the account's.
  static std::string WhatIsLeft() {
    std::string left = std::filesystem::exists(kJob) ? kJob : "";
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(kRecord).parent_path())) {
      const std::string name = entry.path().filename();
      if (name != "api_key" && name != ".api_key.lock" && name != ".user.conf.lock") left += " " + name;
    }
    return left;
  }
};

TEST_F(BrowserLogin, ATerminalAsksAgainUntilTheAnswerIsOfThisSignIn) {
  Attempt tool;
  const struct {
    std::string typed, told;
  } rows[] = {{"\n  \nhttps://a/cb?code=c&state=\nsecond half of it\n", "belongs to another sign-in"},
              {"https://a/cb?code=c&state=" + tool.state + "&state=" + tool.state + "\n", "\"state\" more than once"},
              {"https://a/cb?code=c&code=c&state=" + tool.state + "\n", "\"code\" more than once"},
              {"https://a/cb?state=" + tool.state + "\n", "no code in it"}};
  for (const auto& row : rows) {
    tool.TypeMore(row.typed);
    ASSERT_TRUE(tool.WaitFor(row.told)) << tool.Shown();
  }
  const Result result = tool.Answer("https://a/cb?code=" + tool.code + "&state=" + tool.state);
  EXPECT_EQ(0, result.exit) << result.err;
  EXPECT_EQ("Signed in as ann@example.com\n", result.out);
  EXPECT_THAT(result.err, Not(HasSubstr("neither"))) << "the second half was taken for an answer";
}

TEST_F(BrowserLogin, WhatIsNoSignInEndsWithItsOwnCodeAndLeavesNothing) {
  const struct {
    std::string line, state;
    int exit;
    const char* words;
  } rows[] = {{"\x04", "", 2, "Nothing was pasted"},
              {"mistyped\n", "", 4, "did not take the code: mistyped, used before, or older than ten minutes."},
              {"https://a/cb?error=access_denied&state=", "own", 4, "answered \"access_denied\""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.words);
    Attempt tool;
    tool.TypeMore(row.state.empty() ? row.line : row.line + tool.state + "\n");
    const Result result = tool.Wait();
    EXPECT_EQ(row.exit, result.exit);
    EXPECT_THAT(result.err, HasSubstr(row.words));
    EXPECT_EQ("", WhatIsLeft());
  }
}

TEST_F(BrowserLogin, AFailureLeavesNothingBehindAndIsNoRefusal) {
  for (const char* path : {kTokenPath, kAuthKeyPath, kQueryPath}) {
    SCOPED_TRACE(path);
    Attempt tool;
    Cloud().TakeDown(path);
    const Result result = tool.Answer(tool.code);
    EXPECT_EQ(5, result.exit);
    EXPECT_THAT(result.err, HasSubstr("nobody is signed in, as before"));
    EXPECT_FALSE(Cloud().Requests(path).empty());
    EXPECT_EQ("", WhatIsLeft());
    Cloud().BringBack();
  }
}

TEST_F(BrowserLogin, AnInterruptionLeavesNothingBehind) {
  for (const char* path : {kTokenPath, kAuthKeyPath, kQueryPath}) {
    SCOPED_TRACE(path);
    Attempt tool;
    Cloud().QueueFault(path, Fault::Delay(std::chrono::seconds(20)));
    Cloud().ClearJournal();
    tool.TypeMore(tool.code + "\n");
    while (Cloud().Requests(path).empty()) usleep(1000);
    const auto start = std::chrono::steady_clock::now();
    tool.TypeMore("\x03");
    const Result result = tool.Wait();
    EXPECT_EQ(130, result.exit);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "the answer was waited for";
    EXPECT_THAT(result.err, HasSubstr("varnkivo: interrupted"));
    EXPECT_EQ("", WhatIsLeft());
    EXPECT_TRUE(Cloud().WaitIdle()) << "somebody still waits for the answer";
  }
}

TEST_F(BrowserLogin, AFailureSaysWhatHasBecomeOfAnEarlierSignIn) {
  const struct {
    const char *path, *words;
    int signedIn;
  } rows[] = {{kTokenPath, "who was signed in before still is", 0},
              {kAuthKeyPath, "its token may be of this sign-in", 0},
              {kQueryPath, "that of the earlier sign-in too: nobody is signed in now", 3}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    SignInLongAgo();
    Attempt tool;
    Cloud().TakeDown(row.path);
    const Result result = tool.Answer(tool.code);
    EXPECT_EQ(5, result.exit);
    EXPECT_THAT(result.err, HasSubstr(row.words));
    EXPECT_EQ(row.signedIn, Tool({"is-signed-in"}).exit);
    Cloud().BringBack();
  }
}

TEST_F(BrowserLogin, TheQrCodeIsShownWhereItCanBeRead) {
  const struct {
    const char* locale;
    unsigned short columns;
    const char* shown;
  } terminals[] = {{"LC_ALL=C.UTF-8", 0, "\u2588"},
                   {"LC_ALL=C.UTF-8", 80, "\u2588"},
                   {"LC_ALL=C.UTF-8", 60, "too narrow"},
                   {"LC_ALL=C", 80, "character set is not UTF-8"}};
  for (const auto& terminal : terminals) {
    SCOPED_TRACE(terminal.shown);
    Call call{{"login"}, "", {"TERM=xterm", terminal.locale}, true};
    call.columns = terminal.columns;
    ToolProcess tool(call);
    ASSERT_TRUE(tool.WaitFor("You have 10 minutes"));
    for (const char* one : {"\u2588", "too narrow", "character set is not UTF-8"})
      EXPECT_EQ(one == std::string(terminal.shown), tool.Shown().find(one) != std::string::npos) << one;
  }
}

}  // namespace
}  // namespace tooltest
