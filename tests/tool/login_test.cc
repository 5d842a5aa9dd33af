// Signing in with the tool: what the server is sent, what the device holds
// afterwards, and the honest word when the two differ.
#include <varnkivo/user.h>

#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

TEST_F(ToolTest, LogInSaysWhoAndNothingElse) {
  const Result result = LogIn();
  EXPECT_EQ(0, result.exit);
  EXPECT_EQ("Signed in as ann@example.com\n", result.out);
  EXPECT_EQ("", result.err);
  EXPECT_THAT(Read(kJob), HasSubstr("/usr/varn/bin/varnkivo --report_info"));
  EXPECT_THAT(Cloud().Complaints(), IsEmpty());

  const Result json = LogIn({"--json"});
  EXPECT_EQ("", json.err);
  EXPECT_EQ("", CheckDocument("login", json.out));
  const std::string before = Read(kRecord);
  const Result refused = LogIn({}, "wrong");
  EXPECT_EQ(4, refused.exit);
  EXPECT_EQ("", refused.out);
  EXPECT_THAT(refused.err, HasSubstr("refused this e-mail and password"));
  EXPECT_THAT(refused.err, HasSubstr("still is"));
  EXPECT_EQ(before, Read(kRecord));
  EXPECT_EQ(kUserId, Parse(json.out)["user_id"].asString());
}

TEST_F(ToolTest, VerifyOnlyTriesThePasswordAndChangesNothing) {
  ASSERT_EQ(0, LogIn({"--verify-only"}).exit);  // makes the device's API key, whoever needs it first
  const std::string before = Snapshot();
  const Result right = LogIn({"--verify-only", "--json"});
  EXPECT_EQ(0, right.exit);
  EXPECT_EQ("", CheckDocument("login", right.out));
  EXPECT_EQ("verified", Parse(right.out)["result"].asString());
  EXPECT_EQ(4, LogIn({"--verify-only"}, "wrong").exit);
  EXPECT_EQ(before, Snapshot());
  EXPECT_FALSE(std::filesystem::exists(kRecord));
}

TEST_F(ToolTest, ASignInRefusedByItsOwnQueryIsARefusal) {
  Cloud().QueueFault(kQueryPath, kivosim::Fault::Answer(400, R"({"code":"badauth"})"));
  const Result result = LogIn({"--json"});
  EXPECT_EQ(4, result.exit);
  EXPECT_EQ("", result.out);
  EXPECT_EQ("refused", ErrorOf(result)["kind"].asString());
  EXPECT_EQ(3, Tool({"is-signed-in"}).exit);
}

TEST_F(ToolTest, AProfileThatIsNotOfThisSignInIsSaidToBeOld) {
  Cloud().QueueFault(kQueryPath, kivosim::Fault::Answer(503, "down"));
  const Result none = LogIn({"--json"});
  EXPECT_EQ("", CheckDocument("login", none.out));
  EXPECT_FALSE(Parse(none.out)["profile_is_current"].asBool());
  EXPECT_TRUE(Parse(none.out)["activated"].isNull());
  EXPECT_EQ(std::string(kUserId) + "\n", Tool({"whoami"}).out);
  ASSERT_EQ(0, LogIn().exit);
  varnkivo::User().SetLastQueryTime(1000000000);
  Cloud().QueueFault(kQueryPath, kivosim::Fault::Answer(503, "down"));
  EXPECT_THAT(LogIn().err, HasSubstr("could not be renewed; the stored one is of 2001-09-09T01:46:40Z"));
  varnkivo::User().SetLastQueryTime(time(nullptr) - 100);
  EXPECT_EQ("", LogIn().err);  // young enough not to be asked for
  Cloud().AddAccount({"bob@example.com", "secret", "1002"});
  const Result other = RunTool({{"login", "--email", "bob@example.com", "--password-stdin"}, "secret"});
  EXPECT_EQ("Signed in as bob@example.com\n", other.out);
  EXPECT_THAT(other.err, HasSubstr("(ann@example.com) is from before this sign-in"));
}

TEST_F(ToolTest, AKeySignsInAndAWrongOneEndsTheEarlierSignInOnlyWithConsent) {
  ASSERT_EQ(0, LogIn().exit);
  const std::string key = AuthKey(), before = Read(kRecord);
  const std::vector<std::string> arguments = {"login", "--key", "--user-id", kUserId, "--auth-key-stdin"};
  std::vector<std::string> consenting = arguments;
  consenting.push_back("--yes");

  const Result asked = RunTool({arguments, "wrong\n"});
  EXPECT_EQ(2, asked.exit);
  EXPECT_THAT(asked.err, HasSubstr("--yes"));
  EXPECT_EQ(before, Read(kRecord));

  Result fresh = RunTool({consenting, "wrong\n"});  // within five minutes the server is not
                                                    // asked, and it says so
  EXPECT_EQ(0, fresh.exit);
  EXPECT_THAT(fresh.err, HasSubstr("The key was not checked"));

  varnkivo::User().SetLastQueryTime(1);
  const Result wrong = RunTool({consenting, "wrong\n"});
  EXPECT_EQ(4, wrong.exit);
  EXPECT_THAT(wrong.err, HasSubstr("has been removed"));
  EXPECT_FALSE(std::filesystem::exists(kRecord));

  const Result right = RunTool({arguments, key + "\n"});  // nobody to lose now
  EXPECT_EQ(0, right.exit);
  EXPECT_EQ("Signed in as ann@example.com\n", right.out);
  EXPECT_EQ("", right.err);
}

TEST_F(ToolTest, RaisedIdsMakeTheToolDeafToTheCallersProxyAndKeyLog) {
  const std::string keyLog = "/tmp/tool_test_keylog";
  const std::vector<std::string> variables = {"https_proxy=http://127.0.0.1:9", "ALL_PROXY=http://127.0.0.1:9",
                                              "SSLKEYLOGFILE=" + keyLog};
  Call call{{"login", "--email", kEmail, "--password-stdin"}, std::string(kPassword) + "\n", variables};
  EXPECT_EQ(5,
            RunTool(call).exit);  // root's own wish is respected: nothing listens there
  EXPECT_TRUE(std::filesystem::remove(keyLog));
  call.realUid = 1000;
  call.effectiveUid = 0;
  const Result raised = RunTool(call);
  EXPECT_EQ(0, raised.exit) << raised.err;
  EXPECT_FALSE(std::filesystem::exists(keyLog));
}

}  // namespace
}  // namespace tooltest
