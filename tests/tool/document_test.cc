// The JSON documents against the shipped schemas, the same keys in every state,
// and the same truth in the plain texts.
#include <fcntl.h>
#include <sys/file.h>
#include <varnkivo/user.h>

#include <filesystem>
#include <functional>
#include <set>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Query {
  const char* schema;
  std::vector<std::string> arguments;
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

TEST_F(ToolTest, EveryDocumentFitsItsSchemaSignedInAndOut) {
  const std::function<void()> states[3] = {[] {}, [] { varnkivo::User().SetEmail(kEmail); },  // the rest is missing
                                           [] { SignInLongAgo(); }};
  for (int state = 0; state < 3; ++state) {
    states[state]();
    for (const Query& query : kQueries) {
      const Result result = Tool(query.arguments);
      EXPECT_EQ(state == 2 ? 0 : query.whenSignedOut, result.exit) << query.schema << " in state " << state;
      EXPECT_EQ("", CheckDocument(query.schema, result.out)) << "in state " << state;
    }
  }
}

TEST_F(ToolTest, NoneOfTheQueriesAsksTheNetworkOrWaitsForALock) {
  SignInLongAgo();
  const int lock = open("/tmp/account_query_info.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  ASSERT_EQ(0, flock(lock, LOCK_EX));
  const std::string before = Snapshot();
  const time_t start = time(nullptr);
  for (const Query& query : kQueries) EXPECT_EQ(0, Tool(query.arguments).exit) << query.schema;
  for (const char* word : {"--help", "--version"}) EXPECT_EQ(0, Tool({word}).exit);
  EXPECT_LT(time(nullptr) - start,
            29);  // one wait for the lock alone would be 30
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(before, Snapshot());
  close(lock);
}

TEST_F(ToolTest, StatusTellsWhatTheDeviceKnows) {
  SignInLongAgo();
  Write(kJob,
        "# made by somebody --report_info\nSHELL=/bin/sh\n 30 4 * * * "
        "root /usr/varn/bin/varnkivo --report_info \n");
  Json::Value status = Parse(Tool({"status", "--json"}).out);
  EXPECT_EQ("signed_in", status["state"].asString());
  EXPECT_EQ(kEmail, status["email"].asString());
  EXPECT_EQ(1000000000, status["last_query_epoch"].asInt());
  EXPECT_EQ("0600", status["record"]["mode"].asString());
  EXPECT_EQ(934, status["record"]["uid"].asInt());
  EXPECT_EQ("30 4 * * * root /usr/varn/bin/varnkivo --report_info", status["job"]["line"].asString());
  EXPECT_EQ(1800, status["job"]["next_run_epoch"].asInt() % 3600);
  const std::string text = Tool({"status"}).out;
  for (const char* words :
       {"yes", kEmail, "mode 0600, owner 934:934", "30 4 * * * root", "https://payment.kivo.example"}) {
    EXPECT_THAT(text, HasSubstr(words));
  }
  varnkivo::User().SetAuthKey("");
  status = Parse(Tool({"status", "--json"}).out);
  EXPECT_EQ("incomplete", status["state"].asString());
  EXPECT_FALSE(status["signed_in"].asBool());
  EXPECT_THAT(Tool({"status"}).out, HasSubstr("incomplete"));
}

TEST_F(ToolTest, SignedOutIsNoForPeopleAndThreeForScripts) {
  EXPECT_EQ("no\n", Tool({"is-signed-in"}).out);
  for (const std::vector<std::string>& query :
       {std::vector<std::string>{"whoami"}, {"account", "show"}, {"account", "show", "--refresh"}}) {
    const Result result = Tool(query);
    EXPECT_EQ(3, result.exit);
    EXPECT_EQ("", result.out);
    EXPECT_THAT(result.err, HasSubstr("Run:         varnkivo login"));
  }
  const Result result = Tool({"account", "show", "--refresh", "--json"});
  EXPECT_EQ("", CheckDocument("account", result.out));
  EXPECT_EQ("not_signed_in", ErrorOf(result)["kind"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  SignInLongAgo();
  EXPECT_EQ("yes\n", Tool({"is-signed-in"}).out);
  EXPECT_EQ(std::string(kEmail) + "\n", Tool({"whoami"}).out);
}

TEST_F(ToolTest, AProfileIsAskedForOnlyWhenWantedAndOldEnough) {
  SignInLongAgo();
  Cloud().ChangeAccount(kEmail, [](kivosim::Account& account) {
    account.fullName = "Zo\xC3\xAB";
    account.criticalVersionList = {{"LUM-8", true}, {"LUM-9", true}, {"LUM-10", false}};
  });
  EXPECT_EQ("Ann Example", Parse(Tool({"account", "show", "--json"}).out)["full_name"].asString());
  EXPECT_EQ(0u, Cloud().Connections());
  const Result asked = Tool({"account", "show", "--refresh", "--json"});
  EXPECT_EQ("", CheckDocument("account", asked.out));
  const Json::Value account = Parse(asked.out);
  EXPECT_TRUE(account["refreshed"].asBool());
  EXPECT_THAT(asked.out, HasSubstr("Zo\xC3\xAB"));  // as it stands, not escaped
  EXPECT_EQ(2u, account["critical_versions"].size());
  EXPECT_EQ(1u, Cloud().Requests(kQueryPath).size());
  const Result again = Tool({"account", "show", "--refresh"});
  EXPECT_THAT(again.err, HasSubstr("less than 5 minutes old"));
  EXPECT_EQ(1u, Cloud().Requests(kQueryPath).size());
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

TEST_F(ToolTest, WhatAServerSaysNeverSteersTheTerminal) {
  Cloud().ChangeAccount(kEmail, [](kivosim::Account& account) {
    account.fullName =
        "\033]0;owned\007\xC2\x9B"
        "31m";
    account.country = "D\xFF";
  });
  ASSERT_EQ(0, LogIn().exit);
  varnkivo::User().SetCountry("D\xFF");
  const Result text = Tool({"account", "show"}), json = Tool({"account", "show", "--json"});
  EXPECT_THAT(text.out, Not(HasSubstr("\033")));
  EXPECT_THAT(text.out, HasSubstr("\\x1b]0;owned\\x07\\x9b31m"));
  EXPECT_EQ("", CheckDocument("account", json.out));
  EXPECT_EQ("D\xEF\xBF\xBD", Parse(json.out)["country"].asString());
}

}  // namespace
}  // namespace tooltest
