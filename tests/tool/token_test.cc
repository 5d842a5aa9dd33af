// `token`, `exec` and `logout`: what they print and hand on, whose rights a program has, how they end, and what they
// leave.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using std::chrono::hours;
using testing::HasSubstr;
using testing::Not;

constexpr char kLogoutPath[] = "device/api/logout";

TEST_F(ToolTest, ATokenIsPrintedInTheFormAskedForAndNotByStatus) {
  ASSERT_EQ(0, LogIn().exit);
  const kivosim::TokenSet old = StoreToken(hours(2));
  const Result status = Tool({"status", "--json"});
  EXPECT_EQ(Json::Int64{old.createdAt + old.expiresIn}, Parse(status.out)["token"]["expires_epoch"].asInt64());
  EXPECT_THAT(status.out + Tool({"status"}).out, Not(HasSubstr(old.accessToken.substr(0, 12))));
  const kivosim::TokenSet set = StoreToken();
  EXPECT_EQ(set.accessToken + "\n", Tool({"token"}).out);
  EXPECT_EQ(set.idToken + "\n", Tool({"token", "--id"}).out);
  EXPECT_EQ("Authorization: Bearer " + set.accessToken + "\n", Tool({"token", "--format", "header"}).out);
  EXPECT_EQ("VARNKIVO_ACCESS_TOKEN=" + set.accessToken + "\n", Tool({"token", "--format", "env"}).out);
  EXPECT_EQ(set.accessToken, Parse(Tool({"token", "--format", "json"}).out)["token"].asString());
}

TEST_F(ToolTest, ATokenThatCannotBeHadEndsWithWhy) {
  for (const Words& more : {Words{"--format=json"}, {"--format", "json", "--nonesuch"}})
    EXPECT_NE("", ErrorOf(Tool(With({"token"}, more)))["cause"].asString());
  EXPECT_EQ('v', Tool({"token", "--format", "header", "--package", "json"}).err[0]) << "no JSON mode";
  EXPECT_EQ(3, Tool({"token"}).exit) << "nobody is signed in";
  ASSERT_EQ(0, LogIn().exit);
  StoreToken(hours(2));
  Cloud().TakeDown("identity", kivosim::Fault::ResetAfterRequest());
  EXPECT_EQ("unreachable", ErrorOf(Tool({"token", "--json"}))["kind"].asString());
  EXPECT_THAT(Tool({"token"}).err, HasSubstr("could not be reached: Recv failure: Connection reset by peer.\n"));
  Cloud().BringBack();
  EXPECT_EQ(0, Tool({"token"}).exit);
  const Json::Value brief = ErrorOf(Tool({"token", "--min-valid", "4000", "--json"}));
  EXPECT_EQ(5, brief["exit_code"].asInt());
  EXPECT_THAT(brief["cause"].asString(), testing::MatchesRegex("The token is valid for 3[56][0-9][0-9] s only\\."));

  const std::string valid = R"({"created_at":)" + std::to_string(time(nullptr)) + R"(,"expires_in":60,"access_token":)";
  for (const std::string& content : {std::string(R"({"created_at":1800000000,"expires_in":1.5,"access_token":"a"})"),
                                     valid + "\"\"}", valid + R"("a\nX-Evil: 1"})"}) {
    Write(kTokenFile, content, 0600);
    for (const Words& call : {Words{"token", "--format", "header"}, {"exec", "--", "/bin/echo", "ran"}})
      EXPECT_EQ("1", Tool(call).out + std::to_string(Tool(call).exit)) << content;
  }
}

TEST_F(ToolTest, AProgramGetsItsWordsAsTheyStandAndTheTokenInItsEnvironmentAlone) {
  EXPECT_EQ(3, Tool({"exec", "--", "curl", "--json"}).exit);
  ASSERT_EQ(0, LogIn().exit);
  const std::string token = StoreToken().accessToken, name = "VARNKIVO_ACCESS_TOKEN=";
  for (const char* word : {"[1,2]", "[]", "{}", "", "--", "-h", "--json", "++", "a,b", "\"q\"", "%%"})
    EXPECT_EQ("<" + std::string(word) + "><x>", Tool({"exec", "--", "/usr/bin/printf", "<%s>", word, "x"}).out);
  const std::string seen = RunTool({{"exec", "--", "/bin/cat", "/proc/self/environ", "/proc/self/cmdline"},
                                    "",
                                    {name + "first", name + "second"}})
                               .out;
  EXPECT_THAT(seen, HasSubstr(name + token));
  EXPECT_EQ(seen.find(token), seen.rfind(token));
  EXPECT_EQ(seen.find(name), seen.rfind(name));
  const std::string all = "Uid:\t1000\t1000\t1000\t1000\nGid:\t1000\t1000\t1000\t1000\n";
  EXPECT_EQ(all, RunTool({{"exec", "--", "/bin/grep", "-E", "^[UG]id:", "/proc/self/status"}, "", {}, false, 1000}).out)
      << "raised ids are not handed on";
  const struct {
    Words arguments;
    int exit;
    const char* words;
  } rows[] = {{{"exec"}, 2, "No program was given"},
              {{"exec", "/bin/true"}, 2, "/bin/true; the program and its arguments follow"},
              {{"status", "--", "/bin/true"}, 2, "runs no program"},
              {{"exec", "--", "/bin/sh", "-c", "echo inside >&2; exit 7"}, 7, "inside"},
              {{"exec", "--", "/no/such/program"}, 127, "could not be run: No such file"},
              {{"exec", "--", "/etc/passwd"}, 126, "could not be run: Permission denied"}};
  for (const auto& row : rows) {
    const Result result = Tool(row.arguments);
    EXPECT_EQ(row.exit, result.exit) << row.words;
    EXPECT_THAT(result.err, HasSubstr(row.words));
  }
  EXPECT_EQ("no_program", ErrorOf(Tool({"exec", "--json", "--", "/no/such/program"}))["kind"].asString());
}

TEST_F(ToolTest, TheBrowserIsOpenedWithTheUsersRights) {
  const std::string folder = "/tmp/tool_test_stub", seen = folder + "/seen";
  std::filesystem::create_directory(folder);
  EXPECT_EQ(0, chown(folder.c_str(), 1000, 1000));
  Write(folder + "/xdg-open",
        "#!/bin/sh\ngrep -E '^[UG]id:' /proc/self/status >" + folder + "/new\nmv " + folder + "/new " + seen, 0755);
  ToolProcess tool({{"login"}, "", {"PATH=" + folder + ":/usr/bin:/bin", "DISPLAY=:9", "TERM=dumb"}, true, 1000});
  ASSERT_TRUE(tool.WaitFor("You have 10 minutes"));
  for (int i = 0; i < 500 && !std::filesystem::exists(seen); ++i) usleep(10000);
  EXPECT_EQ("Uid:\t1000\t1000\t1000\t1000\nGid:\t1000\t1000\t1000\t1000\n", Read(seen));
  std::filesystem::remove_all(folder);
}

TEST_F(ToolTest, ASignOutAsksTellsTheAccountCentreAndLeavesNothingUnlessItIsRefused) {
  ASSERT_EQ(0, LogIn().exit);
  StoreToken();
  Cloud().TakeDown(kLogoutPath);
  EXPECT_THAT(Tool({"logout"}).err, HasSubstr("Run:         varnkivo logout --yes"));
  const Json::Value refused = ErrorOf(Tool({"logout", "--yes", "--json"}));
  EXPECT_EQ("unreachable", refused["kind"].asString());
  EXPECT_THAT(refused["run"].asString(), HasSubstr("--local"));
  EXPECT_TRUE(std::filesystem::exists(kRecord) && std::filesystem::exists(kTokenFile));
  Cloud().BringBack();
  for (const bool local : {false, true}) {
    ASSERT_EQ(0, LogIn().exit);
    StoreToken();
    Cloud().ClearJournal();
    const Result result = Tool({"logout", "--yes", "--json", local ? "--local" : "--strict"});
    EXPECT_EQ("", CheckDocument("logout", result.out)) << result.err;
    EXPECT_EQ(local ? 0u : 1u, Cloud().Requests(kLogoutPath).size());
    for (const char* path : {kRecord, kJob, kTokenFile}) EXPECT_FALSE(std::filesystem::exists(path)) << path;
  }
  EXPECT_EQ("varnkivo: Nobody was signed in.\n", Tool({"logout"}).err);
  constexpr char kFacts[] = "/usr/varn/etc/host.conf";
  const std::string facts = Read(kFacts);
  Write(kFacts, "", 0644);
  EXPECT_EQ(0, Tool({"logout"}).exit) << "a device without a serial number has nobody to sign out either";
  Write(kFacts, facts, 0644);
  EXPECT_EQ(9, Tool({"logout", "--strict"}).exit);
}

}  // namespace
}  // namespace tooltest
