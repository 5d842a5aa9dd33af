// `exec`: what the program is given, whose rights it has, and what becomes of the tool's own mistakes.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kStubs[] = "/tmp/exec_test";

class ExecTest : public ToolTest {
 protected:
  ExecTest() {
    std::filesystem::remove_all(kStubs);
    std::filesystem::create_directory(kStubs);
    EXPECT_EQ(0, chown(kStubs, 1000, 1000));
  }

  static std::string SignIn() {
    EXPECT_EQ(0, LogIn().exit);
    const kivosim::TokenSet set = Cloud().IssueTokens(kEmail, "kivo-device", kSerial);
    Write(kTokenFile, set.fileText, 0600);
    return set.accessToken;
  }

  /// A program of this name, found before any other.
  static std::string Stub(const std::string& name, const std::string& script) {
    Write(std::string(kStubs) + "/" + name, "#!/bin/sh\n" + script, 0755);
    return std::string("PATH=") + kStubs + ":/usr/bin:/bin";
  }
};

TEST_F(ExecTest, EveryWordAfterTheFirstDashesIsTheProgramsAsItStands) {
  SignIn();
  for (const char* word : {"[1,2]", "[]", "{}", "[a]", "", "--", "-h", "--help", "--json", "++", "a,b", "\"q\"", "%%"})
    EXPECT_EQ("<" + std::string(word) + "><x>", Tool({"exec", "--", "/usr/bin/printf", "<%s>", word, "x"}).out);
}

TEST_F(ExecTest, WhatCannotBeRunHasItsOwnCodes) {
  EXPECT_THAT(Tool({"exec", "--", "curl", "--json"}).err, StartsWith("varnkivo: Nobody is signed in"));
  SignIn();
  const struct {
    std::vector<std::string> arguments;
    int exit;
    const char* words;
  } rows[] = {{{"exec"}, 2, "No program was given"},
              {{"exec", "--"}, 2, "No program was given"},
              {{"exec", "/bin/true"}, 2, "/bin/true"},
              {{"status", "--", "/bin/true"}, 2, "runs no program"},
              {{"exec", "--", "/no/such/program"}, 127, "could not be run: No such file"},
              {{"exec", "--", "[]"}, 127, "\"[]\" could not"},
              {{"exec", "--", ""}, 127, "could not be run"},
              {{"exec", "--", "/etc/passwd"}, 126, "could not be run: Permission denied"}};
  for (const auto& row : rows) {
    const Result result = Tool(row.arguments);
    EXPECT_EQ(row.exit, result.exit) << row.words;
    EXPECT_THAT(result.err, HasSubstr(row.words));
    EXPECT_EQ("", result.out);
  }
  EXPECT_EQ("no_program", ErrorOf(Tool({"exec", "--json", "--", "/no/such/program"}))["kind"].asString());
}

TEST_F(ExecTest, AnEarlierValueOfTheVariableIsGone) {
  const std::string token = SignIn(), name = "VARNKIVO_ACCESS_TOKEN=";
  const std::string environment =
      RunTool({{"exec", "--", "/bin/cat", "/proc/self/environ"}, "", {name + "first", name + "second"}}).out;
  EXPECT_THAT(environment, HasSubstr(name + token));
  EXPECT_EQ(environment.find(name), environment.rfind(name));
}

TEST_F(ExecTest, AProgramIsNotRunWithAnEmptyToken) {
  SignIn();
  Write(kTokenFile, R"({"created_at":)" + std::to_string(time(nullptr)) + R"(,"expires_in":60,"access_token":""})",
        0600);
  const Result result = Tool({"exec", "--", "/bin/echo", "ran"});
  EXPECT_EQ(1, result.exit);
  EXPECT_EQ("", result.out);
}

TEST_F(ExecTest, RaisedIdsAreNotHandedOnToAnotherProgram) {
  SignIn();
  const std::string all = "Uid:\t1000\t1000\t1000\t1000\nGid:\t1000\t1000\t1000\t1000\n";
  const Result ran =
      RunTool({{"exec", "--", "/bin/grep", "-E", "^[UG]id:", "/proc/self/status"}, "", {}, false, 1000, 0});
  EXPECT_EQ(all, ran.out) << ran.err;

  const std::string seen = std::string(kStubs) + "/seen", done = std::string(kStubs) + "/done";
  const std::string path = Stub(
      "xdg-open", "files=$(readlink /proc/$$/fd/[012])\n{ grep -E '^[UG]id:' /proc/self/status; echo \"$files\"; } >" +
                      seen + "\n: >" + done);
  Call call{{"login"}, "", {path, "DISPLAY=:9", "TERM=dumb"}, true, 1000, 0};
  ToolProcess tool(call);
  ASSERT_TRUE(tool.WaitFor("You have 10 minutes"));
  for (int i = 0; i < 500 && !std::filesystem::exists(done); ++i) usleep(10000);
  EXPECT_EQ(all + "/dev/null\n/dev/null\n/dev/null\n", Read(seen));
}

TEST_F(ExecTest, TheExampleInTheHelpRunsInAPlainShell) {
  const std::string token = SignIn(), help = Tool({"exec", "--help"}).out;
  EXPECT_THAT(help, Not(HasSubstr("document")));
  const std::size_t begin = help.find("varnkivo exec -- ");
  ASSERT_NE(std::string::npos, begin);
  const std::string path = Stub("curl", "echo \"$@\"; cat");
  std::filesystem::create_symlink(VARNKIVO_TOOL_PATH, std::string(kStubs) + "/varnkivo");
  const std::string example = help.substr(begin, help.find('\n', begin) - begin);
  const Result ran = Tool({"exec", "--", "/bin/sh", "-c", path + "\n" + example});
  EXPECT_EQ("-H @- URL\nAuthorization: Bearer " + token + "\n", ran.out) << ran.err;
}

}  // namespace
}  // namespace tooltest
