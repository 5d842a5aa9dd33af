// The tool on a terminal: the prompt, the spinner, the question, and what a
// signal leaves behind.
#include <csignal>
#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

Call AtTerminal(std::vector<std::string> arguments, std::string typed, std::string after,
                std::vector<std::string> environment = {"TERM=xterm"}) {
  Call call{std::move(arguments), std::move(typed), std::move(environment), true};
  call.typeAfter = std::move(after);
  return call;
}

TEST_F(ToolTest, ThePromptTakesThePasswordUnseenAndGivesTheEchoBack) {
  ToolProcess tool(AtTerminal({"login", "--email", kEmail}, std::string(kPassword) + "\n", "Password: "));
  const Result result = tool.Wait();
  EXPECT_EQ(0, result.exit) << result.err;
  EXPECT_EQ("Signed in as ann@example.com\n", result.out);
  EXPECT_THAT(result.err, Not(HasSubstr(kPassword)));
  EXPECT_TRUE(tool.EchoIsOn());
}

TEST_F(ToolTest, ASignalAtThePromptGivesTheEchoBack) {
  ToolProcess tool(AtTerminal({"login", "--email", kEmail}, "", "never"));
  ASSERT_TRUE(tool.WaitFor("Password: "));
  EXPECT_FALSE(tool.EchoIsOn());
  tool.Signal(SIGINT);
  EXPECT_EQ(130, tool.Wait().exit);
  EXPECT_TRUE(tool.EchoIsOn());
  EXPECT_EQ(0u, Cloud().Connections());
}

TEST_F(ToolTest, OnlyATerminalThatWantsItGetsASpinnerAndColour) {
  const struct {
    std::vector<std::string> environment;
    bool json;
    bool lively;
  } terminals[] = {{{"TERM=xterm"}, false, true},
                   {{"TERM=xterm", "NO_COLOR=1"}, false, false},
                   {{"TERM=dumb"}, false, false},
                   {{"TERM=xterm"}, true, false}};
  for (const auto& terminal : terminals) {
    SCOPED_TRACE(testing::PrintToString(terminal.environment));
    Cloud().QueueFault(kLoginPath, kivosim::Fault::Delay(std::chrono::milliseconds(500)));
    std::vector<std::string> arguments = {"login", "--email", kEmail};
    if (terminal.json) arguments.push_back("--json");
    const Result result = RunTool(AtTerminal(arguments, "wrong\n", "Password: ", terminal.environment));
    EXPECT_EQ(4, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_EQ(terminal.lively,
              result.err.find("Signing in as ann@example.com ... 0 s (limit 14 min)") != std::string::npos);
    EXPECT_EQ(terminal.lively, result.err.find('\033') != std::string::npos) << result.err;
  }
}

TEST_F(ToolTest, AKeySignInAsksBeforeItPutsAnotherAtRisk) {
  ASSERT_EQ(0, LogIn().exit);
  const std::string before = Read(kRecord);
  const Result no = RunTool(AtTerminal({"login", "--key", "--user-id", "7"}, "n\n", "[y/N] "));
  EXPECT_EQ(1, no.exit);
  EXPECT_THAT(no.err, HasSubstr("Somebody is signed in (ann@example.com)"));
  EXPECT_EQ(before, Read(kRecord));
  ToolProcess yes(AtTerminal({"login", "--key", "--user-id", "7"}, "y\n", "[y/N] "));
  EXPECT_TRUE(yes.WaitFor("Auth key: "));
}

}  // namespace
}  // namespace tooltest
