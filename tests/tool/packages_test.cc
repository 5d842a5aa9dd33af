// Tokens of installed packages: which request a token costs, how the verbs end, and what `packages` tells of the files.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kFolder[] = "/usr/varn/etc/varnholt-account/private/";
constexpr char kTokens[] = "/usr/varn/etc/varnholt-account/private/photos_token.json";
constexpr char kGrant[] = "oauth2/api/v1/device/package/authorization_code/grant";
constexpr char kForced[] = "varnkivo token --package photos --force";
constexpr char kLink[] = "/tmp/account_linked_pkce_client.conf";
constexpr char kConfiguration[] = "/tmp/account_photos_pkce_client.conf";

class PackagesTest : public ToolTest {
 protected:
  PackagesTest() {
    for (const char* file : {kConfiguration, kLink}) unlink(file);
    EXPECT_EQ(0, LogIn().exit);
    EXPECT_EQ(0, Tool({"token"}).exit);
    Cloud().ClearJournal();
  }

  /// A token set of `photos` that is `age` seconds old; they live for 3600.
  static std::string Store(int age) {
    const kivosim::TokenSet set =
        Cloud().IssueTokens(kEmail, "kivo-package-photos", kSerial, std::chrono::seconds(age));
    Write(kTokens, set.fileText, 0600);
    return set.accessToken;
  }
  static std::size_t Grants() { return Cloud().Requests(kGrant).size(); }
  static std::string Stored() { return Parse(Read(kTokens))["access_token"].asString(); }
};

TEST_F(PackagesTest, ATokenIsGrantedKeptAndGrantedAnewWhenWanted) {
  const struct {
    int age;  // of the stored token; -1: none is stored
    std::vector<std::string> more;
    std::size_t grants, renewals;
  } rows[] = {{-1, {}, 1, 0},
              {60, {}, 0, 0},
              {7200, {}, 0, 1},
              {60, {"--force"}, 1, 0},
              {60, {"--min-valid", "3000"}, 0, 0},
              {3000, {"--min-valid", "1200"}, 1, 0},
              {7200, {"--min-valid", "1200"}, 0, 1},
              {3000, {"--min-valid", "1200", "--force"}, 1, 0}};
  for (const auto& row : rows) {
    std::filesystem::remove(kTokens);
    const std::string before = row.age < 0 ? "" : Store(row.age);
    Cloud().ClearJournal();
    std::vector<std::string> arguments = {"token", "--package", "photos", "--json"};
    arguments.insert(arguments.end(), row.more.begin(), row.more.end());
    const Result result = Tool(arguments);
    const std::string what = std::to_string(row.age) + " s, " + (row.more.empty() ? "" : row.more[0]) + ": ";
    EXPECT_EQ("", CheckDocument("token", result.out)) << what << result.err;
    EXPECT_EQ("photos", Parse(result.out)["package"].asString());
    EXPECT_EQ(Stored(), Parse(result.out)["token"].asString()) << what;
    EXPECT_EQ(row.grants + row.renewals == 0, Stored() == before) << what;
    EXPECT_EQ(row.grants, Grants()) << what;
    EXPECT_EQ(row.grants + row.renewals, Cloud().Requests("oauth2/token").size()) << what;
  }
  const Json::Value whole = Parse(Read(kTokens));
  EXPECT_EQ(whole["id_token"].asString() + "\n", Tool({"token", "--package", "photos", "--id"}).out);
  EXPECT_NE(Stored() + "\n", Tool({"token"}).out) << "the device's own is another";
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

TEST_F(PackagesTest, WhatCannotBeHadEndsWithItsCodeAndWhy) {
  for (const std::string& name : {std::string(), std::string(".photos"), std::string("../photos"), std::string("a b"),
                                  std::string("lum"), std::string(129, 'a')}) {
    for (const Result& result : {Tool({"token", "--force", "--package", name}), Tool({"token", "--package", name}),
                                 Tool({"exec", "--package", name, "--", "/bin/echo", "ran"})}) {
      EXPECT_EQ(2, result.exit) << name;
      EXPECT_THAT(result.err, HasSubstr("1 to 128 of A-Z"));
      EXPECT_EQ("", result.out);
    }
  }
  const struct {
    std::vector<std::string> arguments;
    int exit;
    const char* cause;
  } rows[] = {{{"token", "--force"}, 2, "--package"},
              {{"token", "--package", "nobody"}, 5, "knows no package of this name"},
              {{"exec", "--package", "nobody", "--", "/bin/echo", "ran"}, 5, "knows no package"},
              {{"token", "--package", "photos", "--min-valid", "5000"}, 5, "has just been granted"}};
  for (const auto& row : rows) {
    const Result result = Tool(row.arguments);
    EXPECT_EQ(row.exit, result.exit) << row.arguments[2 % row.arguments.size()];
    EXPECT_THAT(result.err, HasSubstr(row.cause));
    EXPECT_EQ("", result.out);
  }
  EXPECT_EQ(1u, Grants()) << "a second grant would give no longer token";
  const struct {
    const char* path;
    Fault fault;
    int exit;
    const char *cause, *run;
  } answers[] = {{kGrant, Fault::Answer(404, "{}"), 5, "knows no package", "varnkivo packages"},
                 {kGrant, Fault::Answer(500, "code=404, inside"), 5, "was incomplete", kForced},
                 {"oauth2/token", Fault::Answer(404, "{}"), 5, "was incomplete", kForced},
                 {kGrant, Fault::Answer(200, "<"), 1, "could not be stored", "df -h /usr/varn/etc /tmp"}};
  for (const auto& answer : answers) {
    Cloud().QueueFault(answer.path, answer.fault);
    const Result result = Tool({"token", "--package", "photos", "--force", "--format", "json"});
    EXPECT_EQ(answer.exit, result.exit) << answer.cause;
    EXPECT_THAT(ErrorOf(result)["cause"].asString(), HasSubstr(answer.cause));
    EXPECT_EQ(answer.run, ErrorOf(result)["run"].asString());
  }
  EXPECT_EQ(
      "varnkivo token --package photos",
      ErrorOf(Tool({"token", "--package", "photos", "--force", "--min-valid", "5000", "--json"}))["run"].asString())
      << "a set that has just been granted";
  Cloud().TakeDown("account");
  const Result down = Tool({"token", "--package", "photos", "--force", "--json"});
  EXPECT_EQ("yes", ErrorOf(down)["retry_helps"].asString());
  EXPECT_EQ("unreachable", ErrorOf(down)["kind"].asString());
  EXPECT_EQ(kForced, ErrorOf(down)["run"].asString());
  Cloud().BringBack();
  EXPECT_EQ(0, Tool({"logout", "--yes"}).exit);
  EXPECT_EQ(3, Tool({"token", "--package", "photos"}).exit);
}

TEST_F(PackagesTest, AProgramGetsThePackagesTokenAndTheCallersRights) {
  const std::string token = Store(60), ids = "1000\t1000\t1000\t1000\n";
  const std::string script = "echo $VARNKIVO_ACCESS_TOKEN; grep -E '^[UG]id:' /proc/self/status";
  Call call{{"exec", "--package", "photos", "--", "/bin/sh", "-c", script}};
  call.realUid = 1000;
  const Result ran = RunTool(call);
  EXPECT_EQ(token + "\nUid:\t" + ids + "Gid:\t" + ids, ran.out) << ran.err;
}

TEST_F(PackagesTest, TheListTellsWhatTheFilesSayAndAsksNobody) {
  const std::string token = Store(60), config = R"({"created_at":)" + std::to_string(time(nullptr) - 100) + "}";
  const std::int64_t expires = Parse(Read(kTokens))["created_at"].asInt64() + 3600;
  for (const char* name : {"linked", "other", "photos,Ab12cd", ".hidden"})
    Write(kFolder + std::string(name) + "_token.json", "{}", 0600);
  ASSERT_EQ(0, symlink(kConfiguration, kLink));
  const struct {
    std::string content;
    mode_t mode;
    uid_t owner;
    const char* state;
  } rows[] = {{config, 0644, 934, "fresh"},
              {config, 0644, 1000, "ignored"},
              {config, 0666, 934, "ignored"},
              {R"({"created_at":1000000000})", 0644, 0, "stale"},
              {R"({"created_at":")" + std::to_string(time(nullptr)) + "\"}", 0644, 0, "stale"},
              {"[]", 0644, 0, "ignored"}};
  for (const auto& row : rows) {
    Write(kConfiguration, row.content, row.mode);
    EXPECT_EQ(0, chown(kConfiguration, row.owner, row.owner));
    const Result result = Tool({"packages", "--json"});
    EXPECT_EQ("", CheckDocument("packages", result.out)) << result.err;
    const Json::Value list = Parse(result.out)["packages"];
    std::string seen;
    for (const Json::Value& client : list)
      seen += client["name"].asString() + " " + client["configuration"].get("state", "-").asString() + "\n";
    EXPECT_EQ("lum -\nlinked ignored\nother none\nphotos " + std::string(row.state) + "\n", seen) << row.content;
    EXPECT_EQ("valid", list[3]["token"]["state"].asString());
    EXPECT_EQ(expires, list[3]["token"]["expires_epoch"].asInt64());
    EXPECT_THAT(result.out + Tool({"packages"}).out, Not(HasSubstr(token.substr(0, 12))));
  }
  EXPECT_THAT(Tool({"packages"}).out, HasSubstr("lum (the device)  valid for"));
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(7, RunTool({{"packages"}, "", {}, false, 1000, 1000}).exit);
  const Result ordinary = RunTool({{"token", "--package", "photos", "--json"}, "", {}, false, 1000, 1000});
  EXPECT_EQ("sudo varnkivo token --package photos", ErrorOf(ordinary)["run"].asString());
}

}  // namespace
}  // namespace tooltest
