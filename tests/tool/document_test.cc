// The JSON documents against the shipped schemas, the same keys in every state, and the same truth in the plain texts.
#include <fcntl.h>
#include <sys/file.h>
#include <varnkivo/user.h>

#include <functional>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Query {
  const char* schema;
  Words arguments;
  int whenSignedOut;
};
const Query kQueries[] = {{"status", {"status", "--json"}, 0},
                          {"whoami", {"whoami", "--json"}, 3},
                          {"is-signed-in", {"is-signed-in", "--json"}, 3},
                          {"account", {"account", "show", "--json"}, 3},
                          {"packages", {"packages", "--json"}, 0},
                          {"scan", {"scan", "--json"}, 0},
                          {"paths", {"paths", "--json"}, 0},
                          {"version", {"version", "--json"}, 0}};

TEST_F(ToolTest, EveryQuerysDocumentFitsItsSchemaAndNoneAsksOrWaitsOrChanges) {
  const int lock = open("/tmp/account_query_info.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  const std::function<void()> states[3] = {[] {}, [] { varnkivo::User().SetEmail(kEmail); },  // the rest is missing
                                           [] { SignInLongAgo(); }};
  for (int state = 0; state < 3; ++state) {
    states[state]();
    ASSERT_EQ(0, flock(lock, LOCK_EX));
    const std::string before = Snapshot();
    const time_t start = time(nullptr);
    for (const Query& query : kQueries) {
      const Result result = Tool(query.arguments);
      EXPECT_EQ(state == 2 ? 0 : query.whenSignedOut, result.exit) << query.schema << " in state " << state;
      EXPECT_EQ("", CheckDocument(query.schema, result.out)) << "in state " << state;
    }
    for (const char* word : {"--help", "--version"}) EXPECT_EQ(0, Tool({word}).exit);
    EXPECT_LT(time(nullptr) - start, 29) << "one wait for the lock alone would be 30";
    EXPECT_EQ(0u, Cloud().Connections());
    EXPECT_EQ(before, Snapshot());
    ASSERT_EQ(0, flock(lock, LOCK_UN));
  }
  close(lock);
}

TEST_F(ToolTest, SignedOutIsNoForPeopleAndThreeForScripts) {
  EXPECT_EQ("no\n", Tool({"is-signed-in"}).out);
  for (const Words& query : {Words{"whoami"}, {"account", "show", "--refresh"}}) {
    const Result result = Tool(query);
    EXPECT_EQ(3, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr("Run:         varnkivo login"));
  }
  EXPECT_EQ("not_signed_in", ErrorOf(Tool({"account", "show", "--refresh", "--json"}))["kind"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  SignInLongAgo();
  EXPECT_EQ("yes\n", Tool({"is-signed-in"}).out);
  EXPECT_EQ(std::string(kEmail) + "\n", Tool({"whoami"}).out);
  EXPECT_EQ("permission", ErrorOf(AsOrdinaryUser({"status", "--json"}))["kind"].asString());
  Write(kJob, "# by somebody --report_info\nSHELL=/bin/sh\n 30 4 * * * root /usr/varn/bin/varnkivo --report_info \n");
  const Json::Value status = Parse(Tool({"status", "--json"}).out);
  EXPECT_EQ("30 4 * * * root /usr/varn/bin/varnkivo --report_info", status["job"]["line"].asString());
  EXPECT_EQ(1800, status["job"]["next_run_epoch"].asInt() % 3600);
  EXPECT_THAT(Tool({"status"}).out, HasSubstr("mode 0600, owner 934:934"));
  varnkivo::User().SetAuthKey("");
  EXPECT_EQ("incomplete", Parse(Tool({"status", "--json"}).out)["state"].asString());
  EXPECT_EQ(0, AsOrdinaryUser({"paths"}).exit);
}

TEST_F(ToolTest, AProfileIsAskedForOnlyWhenWantedAndOldEnough) {
  SignInLongAgo();
  Cloud().ChangeAccount(kEmail, [](kivosim::Account& account) {
    account.fullName = "Zo\xC3\xAB\033]0;owned\007\xC2\x9B";
    account.criticalVersionList = {{"LUM-8", true}, {"LUM-9", true}, {"LUM-10", false}};
  });
  EXPECT_EQ("Ann Example", Parse(Tool({"account", "show", "--json"}).out)["full_name"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  const Result asked = Tool({"account", "show", "--refresh", "--json"});
  EXPECT_EQ("", CheckDocument("account", asked.out));
  EXPECT_EQ(2u, Parse(asked.out)["critical_versions"].size());
  EXPECT_THAT(asked.out, HasSubstr("Zo\xC3\xAB"));  // as it stands, not escaped
  const Result again = Tool({"account", "show", "--refresh"});
  EXPECT_THAT(again.err, HasSubstr("less than 5 minutes old"));
  EXPECT_EQ(1u, Cloud().Requests(kQueryPath).size());
  EXPECT_THAT(again.out, testing::AllOf(HasSubstr("\\x1b]0;owned\\x07\\x9b"), Not(HasSubstr("\033"))));
  varnkivo::User().SetCountry("D\xFF");
  const Result json = Tool({"account", "show", "--json"});
  EXPECT_EQ("D\xEF\xBF\xBD", Parse(json.out)["country"].asString());
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

}  // namespace
}  // namespace tooltest
