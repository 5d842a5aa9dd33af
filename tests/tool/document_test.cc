// The JSON documents against the shipped schemas, the same keys in every state, and the same truth in the plain texts.
#include <fcntl.h>
#include <sys/file.h>
#include <varnkivo/user.h>

#include <filesystem>
#include <functional>
#include <set>

#include "cron_schedule.h"
#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

std::set<std::string> Keys(const Json::Value& value, const std::string& prefix = "") {
  std::set<std::string> keys;
  if (!value.isObject()) return keys;
  for (const std::string& key : value.getMemberNames()) {
    keys.insert(prefix + key);
    keys.merge(Keys(value[key], prefix + key + "."));
  }
  return keys;
}

struct Query {
  const char* schema;
  std::vector<std::string> arguments;
  int whenSignedOut;
};
const Query kQueries[] = {{"status", {"status", "--json"}, 0},
                          {"whoami", {"whoami", "--json"}, 3},
                          {"is-signed-in", {"is-signed-in", "--json"}, 3},
                          {"account", {"account", "show", "--json"}, 3},
                          {"paths", {"paths", "--json"}, 0},
                          {"version", {"version", "--json"}, 0}};

TEST_F(ToolTest, EveryDocumentFitsItsSchemaAndHasTheSameKeysSignedInAndOut) {
  std::set<std::string> keys[3][std::size(kQueries)];
  const std::function<void()> states[3] = {[] {}, [] { varnkivo::User().SetEmail(kEmail); },  // the rest is missing
                                           [] { SignInLongAgo(); }};
  for (int state = 0; state < 3; ++state) {
    states[state]();
    for (std::size_t i = 0; i < std::size(kQueries); ++i) {
      SCOPED_TRACE(std::string(kQueries[i].schema) + " in state " + std::to_string(state));
      const Result result = Tool(kQueries[i].arguments);
      EXPECT_EQ(state == 2 ? 0 : kQueries[i].whenSignedOut, result.exit);
      EXPECT_EQ("", CheckDocument(kQueries[i].schema, result.out));
      keys[state][i] = Keys(Parse(result.out));
      EXPECT_EQ(keys[0][i], keys[state][i]);
      EXPECT_THAT(result.out, Not(HasSubstr("lu_auth_key")));
    }
  }
}

TEST_F(ToolTest, TheCheckerOfTheseTestsRefusesWhatASchemaForbids) {
  const struct {
    const char* text;
    const char* wrong;
  } documents[] = {
      {R"({"schema_version":1,"state":"signed_in"})", "lacks signed_in"},
      {R"({"schema_version":1,"state":"signed_in","signed_in":true,"auth_key":"x"})", "unknown key auth_key"},
      {R"({"schema_version":1,"state":"here","signed_in":true})", "none of the choices"},
      {R"({"schema_version":1,"state":"signed_in","signed_in":"yes"})", "wrong type"},
      {R"({"schema_version":2,"state":"signed_in","signed_in":true})", "not the constant"},
      {"{} {}", "not one JSON document"}};
  for (const auto& document : documents) {
    EXPECT_THAT(CheckDocument("is-signed-in", document.text), HasSubstr(document.wrong));
  }
}

TEST_F(ToolTest, NoneOfTheQueriesAsksTheNetworkOrWaitsForALock) {
  SignInLongAgo();
  const int lock = open("/tmp/account_query_info.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  ASSERT_EQ(0, flock(lock, LOCK_EX));
  const std::string before = Snapshot();
  const time_t start = time(nullptr);
  for (const Query& query : kQueries) EXPECT_EQ(0, Tool(query.arguments).exit) << query.schema;
  for (const char* word : {"--help", "--version"}) {
    const Result result = Tool({word});
    EXPECT_EQ(0, result.exit);
    EXPECT_EQ("", result.err);
    EXPECT_NE("", result.out);
  }
  EXPECT_LT(time(nullptr) - start, 20);  // one wait for the lock alone would be 30
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(before, Snapshot());
  close(lock);
}

TEST_F(ToolTest, StatusTellsWhatTheDeviceKnows) {
  SignInLongAgo();
  Write(kJob,
        "# made by somebody --report_info\nSHELL=/bin/sh\n 30 4 * * * root /usr/varn/bin/varnkivo --report_info \n");
  Json::Value status = Parse(Tool({"status", "--json"}).out);
  EXPECT_EQ("signed_in", status["state"].asString());
  EXPECT_EQ(kEmail, status["email"].asString());
  EXPECT_EQ(kUserId, status["user_id"].asString());
  EXPECT_TRUE(status["activated"].asBool());
  EXPECT_EQ("2001-09-09T01:46:40Z", status["last_query_time"].asString());
  EXPECT_EQ(1000000000, status["last_query_epoch"].asInt());
  EXPECT_EQ("0600", status["record"]["mode"].asString());
  EXPECT_EQ(934, status["record"]["uid"].asInt());
  EXPECT_EQ(934, status["record"]["gid"].asInt());
  EXPECT_EQ("30 4 * * * root /usr/varn/bin/varnkivo --report_info", status["job"]["line"].asString());
  EXPECT_EQ(1800, status["job"]["next_run_epoch"].asInt() % 3600);
  EXPECT_EQ("https://account.kivo.example", status["hosts"]["account"].asString());
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
  EXPECT_EQ("LUM-8", account["critical_versions"][0].asString());
  EXPECT_EQ(2u, account["critical_versions"].size());
  EXPECT_EQ(3u, account["critical_version_choices"].size());
  EXPECT_EQ(1u, Cloud().Requests(kQueryPath).size());
  const Result again = Tool({"account", "show", "--refresh"});
  EXPECT_EQ(0, again.exit);
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
  EXPECT_THAT(text.out, Not(HasSubstr("\xC2\x9B")));
  EXPECT_THAT(text.out, HasSubstr("\\x1b]0;owned\\x07\\x9b31m"));
  EXPECT_EQ("", CheckDocument("account", json.out));
  EXPECT_EQ("D\xEF\xBF\xBD", Parse(json.out)["country"].asString());
}

TEST_F(ToolTest, EveryVerbHasHelpWithAnExample) {
  const std::vector<std::vector<std::string>> verbs = {{"login"},   {"status"},          {"whoami"}, {"is-signed-in"},
                                                       {"account"}, {"account", "show"}, {"paths"},  {"version"}};
  const std::string all = Tool({"--help"}).out;
  for (std::vector<std::string> verb : verbs) {
    EXPECT_THAT(all, HasSubstr(verb[0]));
    verb.push_back("--help");
    const Result result = Tool(verb);
    EXPECT_EQ(0, result.exit);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(result.out, HasSubstr("Example:\n  varnkivo " + verb[0]));
  }
  EXPECT_EQ("varnkivo 1.0.0\n", Tool({"--version"}).out);
  EXPECT_EQ("varnkivo 1.0.0\n", Tool({"version"}).out);
}

TEST(NextRun, FollowsTheRulesOfCron) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  const std::int64_t now = 1795269600;  // Saturday 2026-11-21 15:00:00 in Berlin
  const struct {
    const char* line;
    std::int64_t next;
  } lines[] = {{"0 15 * * * root x", now + 86400},  // not the minute that has begun
               {"1 15 * * * root x", now + 60},
               {"17 11 * * 1-5 root x", 1795429020},  // Monday
               {"*/20 * * * * root x", now + 1200},
               {"5,50 14,16 * * * root x", now + 3900},
               {"0 0 1 * 0 root x", 1795302000},  // the 1st or any Sunday
               {"0 0 1 * 7 root x", 1795302000},
               {"0 0 31 12 * root x", 1798671600},
               {"0 0 30 2 * root x", 0},  // never
               {"~ 9~16 * * 1~5 root x", 0},
               {"60 1 * * * root x", 0},
               {"@daily root x", 0},
               {"1 2 3", 0},
               {"", 0}};
  for (const auto& line : lines) EXPECT_EQ(line.next, kivotool::NextRun(line.line, now)) << line.line;
  unsetenv("TZ");
  tzset();
}

}  // namespace
}  // namespace tooltest
