// Signing in by browser: what is taken for an answer, and how the device stands when it comes to nothing.
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kAuthKeyPath[] = "oauth2/api/v1/device/core/authkey/exchange";
constexpr char kRedirectUri[] = "https://account.kivo.example/device/login/callback";

class BrowserLogin : public ToolTest {
 protected:
  /// `login` on a terminal, that has shown its address.
  class Attempt : public ToolProcess {
   public:
    Attempt() : ToolProcess({{"login"}, "", {"TERM=dumb"}, true}) {
      EXPECT_TRUE(WaitFor("You have 10 minutes"));
      code = Cloud().IssueCode(kEmail, "kivo-device", kSerial, kRedirectUri, Find("code_challenge=([A-Za-z0-9_-]+)"));
      state = Find("state=([0-9a-f]+)");
    }
    Result Answer(const std::string& line) {
      Type(line + "\n");
      return Wait();
    }
    std::string Find(const char* what) const {
      std::smatch found;
      EXPECT_TRUE(std::regex_search(Shown(), found, std::regex(what))) << Shown();
      return found[1];
    }

    std::string code, state;
  };

  /// No record, no token, not even a half written one, and no job. The device's API key is not the account's.
  static void ExpectNothingLeft() {
    EXPECT_FALSE(std::filesystem::exists(kJob));
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::path(kRecord).parent_path()))
      EXPECT_THAT(entry.path().filename(), testing::AnyOf("api_key", ".api_key.lock", ".user.conf.lock"));
  }
};

TEST_F(BrowserLogin, ATerminalAsksAgainUntilTheAnswerIsOfThisSignIn) {
  Attempt tool;
  const std::string url = "https://a/cb?code=c&state=";
  const std::pair<std::string, const char*> rows[] = {
      {"\n  \n" + url + "\nsecond half of it\n", "belongs to another sign-in"},
      {url + tool.state + "&state=" + tool.state + "\n", "\"state\" more than once"},
      {url + tool.state + "&code=c\n", "\"code\" more than once"}};
  for (const auto& [typed, told] : rows) {
    tool.Type(typed);
    ASSERT_TRUE(tool.WaitFor(told)) << tool.Shown();
  }
  const Result result = tool.Answer("https://a/cb?code=" + tool.code + "&state=" + tool.state);
  EXPECT_EQ("Signed in as ann@example.com\n", result.out);
  EXPECT_THAT(result.err, Not(HasSubstr("neither"))) << "the second half was taken for an answer";
}

TEST_F(BrowserLogin, WhatIsNoSignInLeavesNothingAndSaysWhatHasBecomeOfAnEarlierOne) {
  const struct {
    const char* path;  // where there is no answer; null: the line is wrong
    const char* line;
    int exit;
    const char *words, *before;
    int signedIn;  // by the earlier one, afterwards
  } rows[] = {{nullptr, "\x04", 2, "Nothing was pasted", "", 0},
              {nullptr, "mistyped\n", 4, "did not take the code", "", 0},
              {nullptr, "https://a/cb?error=access_denied&state=", 4, "answered \"access_denied\"", "", 0},
              {kTokenPath, "", 5, "nobody is signed in, as before", "who was signed in before still is", 0},
              {kAuthKeyPath, "", 5, "nobody is signed in, as before", "its token may be of this sign-in", 0},
              {kQueryPath, "", 5, "nobody is signed in, as before", "earlier sign-in too: nobody is signed in", 3}};
  for (const auto& row : rows) {
    for (const bool earlier : {false, true}) {
      SCOPED_TRACE(row.words + std::string(row.path ? row.path : ""));
      if (earlier) SignInLongAgo();
      Attempt tool;
      if (row.path) Cloud().TakeDown(row.path);
      const std::string line = row.path ? tool.code + "\n" : row.line;
      tool.Type(line.back() == '=' ? line + tool.state + "\n" : line);
      const Result result = tool.Wait();
      EXPECT_EQ(row.exit, result.exit);
      EXPECT_THAT(result.err, HasSubstr(earlier && row.path ? row.before : row.words));
      if (!earlier) ExpectNothingLeft();
      Cloud().BringBack();
      EXPECT_EQ(earlier ? row.signedIn : 3, Tool({"is-signed-in"}).exit);
      EXPECT_EQ(0, Tool({"logout", "--local", "--yes"}).exit);
    }
  }
}

TEST_F(BrowserLogin, AnInterruptionLeavesNothingBehind) {
  for (const char* path : {kTokenPath, kAuthKeyPath, kQueryPath}) {
    SCOPED_TRACE(path);
    Attempt tool;
    Cloud().QueueFault(path, Fault::Delay(std::chrono::seconds(20)));
    Cloud().ClearJournal();
    tool.Type(tool.code + "\n");
    while (Cloud().Requests(path).empty()) usleep(1000);
    const auto start = std::chrono::steady_clock::now();
    tool.Type("\x03");
    const Result result = tool.Wait();
    EXPECT_EQ(130, result.exit);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "the answer was waited for";
    EXPECT_THAT(result.err, HasSubstr("varnkivo: interrupted"));
    ExpectNothingLeft();
    EXPECT_TRUE(Cloud().WaitIdle()) << "somebody still waits for the answer";
  }
}

}  // namespace
}  // namespace tooltest
