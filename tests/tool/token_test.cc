// `token` and `logout`: what they print, how they end, and what they leave.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kLogoutPath[] = "device/api/logout";

/// Signed in, with a token that is `age` old.
kivosim::TokenSet SignInWithToken(kivosim::Simulator& cloud, std::chrono::seconds age) {
  const kivosim::TokenSet set = cloud.IssueTokens(kEmail, "kivo-device", kSerial, age);
  std::ofstream(kTokenFile) << set.fileText;
  EXPECT_TRUE(chmod(kTokenFile, 0600) == 0 && chown(kTokenFile, 934, 934) == 0);
  return set;
}

TEST_F(ToolTest, ATokenIsPrintedInTheFormAskedFor) {
  ASSERT_EQ(0, LogIn().exit);
  const kivosim::TokenSet set = SignInWithToken(Cloud(), std::chrono::seconds(60));
  EXPECT_EQ(set.accessToken + "\n", Tool({"token"}).out);
  EXPECT_EQ(set.idToken + "\n", Tool({"token", "--id"}).out);
  EXPECT_EQ("Authorization: Bearer " + set.accessToken + "\n", Tool({"token", "--format", "header"}).out);
  EXPECT_EQ("VARNKIVO_ACCESS_TOKEN=" + set.accessToken + "\n", Tool({"token", "--format", "env"}).out);
  for (const std::vector<std::string>& call :
       {std::vector<std::string>{"token", "--json"}, {"token", "--format", "json"}}) {
    const Result result = Tool(call);
    EXPECT_EQ("", CheckDocument("token", result.out));
    EXPECT_EQ(set.accessToken, Parse(result.out)["token"].asString());
  }
  EXPECT_EQ(2, Tool({"token", "--format", "xml"}).exit);
}

TEST_F(ToolTest, AProgramGetsATokenInItsEnvironmentAndNowhereElse) {
  ASSERT_EQ(0, LogIn().exit);
  const kivosim::TokenSet set = SignInWithToken(Cloud(), std::chrono::seconds(60));
  const Result ran = Tool(
      {"exec", "--", "/bin/sh", "-c", "echo $VARNKIVO_ACCESS_TOKEN $1; cat /proc/$$/cmdline; exit 7", "-", "--json"});
  EXPECT_EQ(7, ran.exit);
  EXPECT_EQ(set.accessToken + " --json\n", ran.out.substr(0, ran.out.find('\n') + 1));
  EXPECT_THAT(ran.out.substr(ran.out.find('\n')), Not(HasSubstr(set.accessToken)));
}

TEST_F(ToolTest, StatusShowsTheTokensAgeAndNeverTheToken) {
  EXPECT_EQ("none", Parse(Tool({"status", "--json"}).out)["token"]["state"].asString());
  const kivosim::TokenSet set = SignInWithToken(Cloud(), std::chrono::hours(2));
  const Result result = Tool({"status", "--json"});
  EXPECT_EQ("", CheckDocument("status", result.out));
  EXPECT_EQ("expired", Parse(result.out)["token"]["state"].asString());
  EXPECT_EQ(Json::Int64{set.createdAt + set.expiresIn}, Parse(result.out)["token"]["expires_epoch"].asInt64());
  EXPECT_THAT(result.out + Tool({"status"}).out, Not(HasSubstr(set.accessToken.substr(0, 12))));
  EXPECT_THAT(Tool({"status"}).out, HasSubstr("expired, renewed when next asked for"));
  Write(kTokenFile, "[]", 0600);
  EXPECT_EQ("unknown", Parse(Tool({"status", "--json"}).out)["token"]["state"].asString());
}

TEST_F(ToolTest, ATokenThatCannotBeHadEndsWithWhy) {
  EXPECT_EQ(3, Tool({"token"}).exit) << "nobody is signed in";
  for (const std::vector<std::string>& more :
       {std::vector<std::string>{"--format=json"}, {"--format", "json"}, {"--format", "json", "--nonesuch"}}) {
    std::vector<std::string> arguments = {"token"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    EXPECT_NE("", ErrorOf(Tool(arguments))["cause"].asString());
  }
  EXPECT_EQ("v", Tool({"token", "--format", "header", "--package", "json"}).err.substr(0, 1)) << "no JSON mode";
  ASSERT_EQ(0, LogIn().exit);
  SignInWithToken(Cloud(), std::chrono::hours(2));
  Cloud().TakeDown("identity", kivosim::Fault::ResetAfterRequest());
  Result result = Tool({"token", "--json"});
  EXPECT_EQ(5, result.exit);
  EXPECT_EQ("yes", ErrorOf(result)["retry_helps"].asString());
  EXPECT_EQ("", result.out);
  Cloud().BringBack();
  EXPECT_EQ(0, Tool({"token"}).exit);
  result = Tool({"token", "--min-valid", "4000", "--json"});
  EXPECT_EQ(5, result.exit);
  EXPECT_THAT(ErrorOf(result)["cause"].asString(), MatchesRegex("The token is valid for 3[56][0-9][0-9] s only\\."));

  SignInWithToken(Cloud(), std::chrono::hours(2));
  Cloud().Revoke(kEmail);
  Cloud().RevokeTokens(kEmail);
  Cloud().QueueFault(kLogoutPath, kivosim::Fault::Answer(200, "{}"));
  result = Tool({"token", "--json"});
  EXPECT_EQ(3, result.exit);
  EXPECT_THAT(ErrorOf(result)["cause"].asString(), HasSubstr("it has been signed out"));
  EXPECT_EQ("", Read(kRecord));

  const std::string valid = R"({"created_at":)" + std::to_string(time(nullptr)) + R"(,"expires_in":60,"access_token":)";
  for (const std::string& content : {std::string(R"({"created_at":1800000000,"expires_in":1.5,"access_token":"a"})"),
                                     valid + "\"\"}", valid + R"("a\nX-Evil: 1"})"}) {
    Write(kTokenFile, content, 0600);
    result = Tool({"token", "--format", "header"});
    EXPECT_EQ(1, result.exit) << content;
    EXPECT_EQ("", result.out);
  }
}

TEST_F(ToolTest, ASignOutAsksTellsTheAccountCentreAndLeavesNothing) {
  ASSERT_EQ(0, LogIn().exit);
  SignInWithToken(Cloud(), std::chrono::seconds(0));
  Result result = Tool({"logout"});
  EXPECT_EQ(2, result.exit);
  EXPECT_THAT(result.err, HasSubstr("Run:         varnkivo logout --yes"));
  EXPECT_NE("", Read(kRecord));

  result = Tool({"logout", "--yes", "--json"});
  EXPECT_EQ(0, result.exit) << result.err;
  EXPECT_EQ("", CheckDocument("logout", result.out));
  EXPECT_EQ(1u, Cloud().Requests(kLogoutPath).size());
  for (const char* path : {kRecord, kJob, kTokenFile}) EXPECT_FALSE(std::filesystem::exists(path)) << path;

  result = Tool({"logout"});
  EXPECT_EQ(0, result.exit);
  EXPECT_EQ("varnkivo: Nobody was signed in.\n", result.err);
  EXPECT_EQ(9, Tool({"logout", "--strict"}).exit);
}

TEST_F(ToolTest, ASignOutThatIsRefusedKeepsEverythingAndALocalOneAsksNobody) {
  ASSERT_EQ(0, LogIn().exit);
  SignInWithToken(Cloud(), std::chrono::seconds(0));
  Cloud().TakeDown(kLogoutPath);
  const Result refused = Tool({"logout", "--yes", "--json"});
  EXPECT_EQ(5, refused.exit);
  EXPECT_THAT(ErrorOf(refused)["run"].asString(), HasSubstr("--local"));
  EXPECT_TRUE(std::filesystem::exists(kRecord) && std::filesystem::exists(kTokenFile));
  Cloud().ClearJournal();
  const Result local = Tool({"logout", "--local", "--yes"});
  EXPECT_EQ("Signed out ann@example.com\n", local.out);
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_FALSE(std::filesystem::exists(kRecord) || std::filesystem::exists(kTokenFile));
}

}  // namespace
}  // namespace tooltest
