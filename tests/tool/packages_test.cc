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
constexpr char kLink[] = "/tmp/account_linked_pkce_client.conf";
constexpr char kConfiguration[] = "/tmp/account_photos_pkce_client.conf";
const Words kAsk = {"token", "--package", "photos", "--json"};

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
  static std::string Stored() { return Parse(Read(kTokens))["access_token"].asString(); }
};

TEST_F(PackagesTest, ATokenIsGrantedKeptAndGrantedAnewWhenWanted) {
  const struct {
    int age;  // of the stored token; -1: none is stored
    Words more;
    std::size_t grants, renewals;
  } rows[] = {
      {-1, {}, 1, 0}, {60, {}, 0, 0}, {7200, {}, 0, 1}, {60, {"--force"}, 1, 0}, {3000, {"--min-valid", "1200"}, 1, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.age) + testing::PrintToString(row.more));
    std::filesystem::remove(kTokens);
    const std::string before = row.age < 0 ? "" : Store(row.age);
    Cloud().ClearJournal();
    const Result result = Tool(With(kAsk, row.more));
    EXPECT_EQ("", CheckDocument("token", result.out)) << result.err;
    EXPECT_EQ(Stored(), Parse(result.out)["token"].asString());
    EXPECT_EQ(row.grants + row.renewals == 0, Stored() == before);
    EXPECT_EQ(row.grants, Cloud().Requests(kGrant).size());
    EXPECT_EQ(row.grants + row.renewals, Cloud().Requests(kTokenPath).size());
  }
  EXPECT_NE(Stored() + "\n", Tool({"token"}).out) << "the device's own is another";
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
  const std::string script = "echo $VARNKIVO_ACCESS_TOKEN; id -ru";
  EXPECT_EQ(Stored() + "\n1000\n",
            RunTool({{"exec", "--package", "photos", "--", "/bin/sh", "-c", script}, "", {}, false, 1000}).out);
}

TEST_F(PackagesTest, WhatCannotBeHadEndsWithItsCodeAndWhy) {
  for (const std::string& name : {std::string(), std::string("../photos"), std::string("lum"), std::string(129, 'a')}) {
    const Result result = Tool({"exec", "--package", name, "--", "/bin/echo", "ran"});
    EXPECT_EQ("2", result.out + std::to_string(result.exit)) << name;
    EXPECT_THAT(result.err, HasSubstr("1 to 128 of A-Z"));
  }
  EXPECT_EQ(2, Tool({"token", "--force"}).exit);
  const Words again = {"--force"};
  const std::string plain = "varnkivo token --package photos", forced = plain + " --force";
  const struct {
    const char* path;
    int status;
    const char* body;
    Words more;
    int exit;
    std::string cause, run;
  } rows[] = {{kGrant, 404, "{}", again, 5, "knows no package of this name", "varnkivo packages"},
              {kGrant, 500, "code=404, inside", again, 5, "was incomplete", forced},
              {kGrant, 200, "<", again, 1, "could not be stored", "df -h /usr/varn/etc /tmp"},
              {"none", 0, "", {"--min-valid", "5000"}, 5, "has just been granted", plain}};
  for (const auto& row : rows) {
    Cloud().QueueFault(row.path, Fault::Answer(row.status, row.body));
    Cloud().ClearJournal();
    const Json::Value error = ErrorOf(Tool(With(kAsk, row.more)));
    EXPECT_EQ(row.exit, error["exit_code"].asInt()) << row.body;
    EXPECT_THAT(error["cause"].asString(), HasSubstr(row.cause));
    EXPECT_EQ(row.run, error["run"].asString());
    EXPECT_EQ(1u, Cloud().Requests(kGrant).size()) << "a second grant would give no longer token";
  }
  EXPECT_EQ("sudo " + plain + " --json", ErrorOf(AsOrdinaryUser(kAsk))["run"].asString());
  EXPECT_EQ(0, Tool({"logout", "--yes"}).exit);
  EXPECT_EQ("not_signed_in", ErrorOf(Tool(kAsk))["kind"].asString());
}

TEST_F(PackagesTest, AStoredSetOfNoUseIsToldAsOneAndReplacedByForce) {
  const std::string huge = "{\"a\":\"" + std::string(5u << 20, 'a') + "\"}";
  const std::string tokens = R"({"access_token":"a","id_token":"i","refresh_token":"r","created_at":1)";
  for (const std::string& content :
       {std::string(), tokens, std::string(5000, '['), huge, tokens + "}", tokens + R"(,"expires_in":{}})"}) {
    Write(kTokens, content, 0600);
    Cloud().ClearJournal();
    const Json::Value error = ErrorOf(Tool(kAsk));
    EXPECT_EQ("1 no", error["exit_code"].asString() + " " + error["retry_helps"].asString()) << content.substr(0, 90);
    EXPECT_THAT(error["cause"].asString(), HasSubstr(kTokens));
    EXPECT_EQ("varnkivo token --package photos --force", error["run"].asString());
    EXPECT_EQ(0u, Cloud().Connections());
  }
  EXPECT_EQ(0, Tool(With(kAsk, {"--force"})).exit);
}

TEST_F(PackagesTest, TheListTellsWhatTheFilesSayAndAsksNobody) {
  const std::string token = Store(60), now = std::to_string(time(nullptr)), config = "{\"created_at\":" + now + "}";
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
              {"[]", 0644, 0, "ignored"}};
  for (const auto& row : rows) {
    Write(kConfiguration, row.content, row.mode);
    EXPECT_EQ(0, chown(kConfiguration, row.owner, row.owner));
    const Result result = Tool({"packages", "--json"});
    EXPECT_EQ("", CheckDocument("packages", result.out)) << result.err;
    std::string seen;
    const Json::Value list = Parse(result.out)["packages"];
    for (const Json::Value& client : list)
      seen += client["name"].asString() + " " + client["configuration"].get("state", "-").asString() + "\n";
    EXPECT_EQ("lum -\nlinked ignored\nother none\nphotos " + std::string(row.state) + "\n", seen) << row.content;
    EXPECT_THAT(result.out + Tool({"packages"}).out, Not(HasSubstr(token.substr(0, 12))));
  }
  EXPECT_THAT(Tool({"packages"}).out, HasSubstr("lum (the device)  valid for"));
  EXPECT_EQ(0u, Cloud().Connections());
  EXPECT_EQ(7, AsOrdinaryUser({"packages"}).exit);
}

}  // namespace
}  // namespace tooltest
