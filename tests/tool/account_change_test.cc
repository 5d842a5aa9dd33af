// Registering an account, changing it, and its password: what is sent, what is asked for, and how it ends.
#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kRegisterPath[] = "device/api/user/register", kUpdatePath[] = "device/api/user/update";

/// "name=value" of the last request there, behind the sender's own fields.
Words LastForm(const kivosim::Simulator& cloud, const char* path) {
  Words fields;
  const auto requests = cloud.Requests(path);
  for (const auto& [name, value] : requests.at(requests.size() - 1).form) fields.push_back(name + "=" + value);
  return {fields.begin() + 2, fields.end()};
}

TEST_F(ToolTest, AnAccountIsRegisteredAndCanThenSignIn) {
  const Words bob = {"account", "register", "--email", "bob@example.com", "--name", "Bob"};
  const Result made =
      RunTool({With(bob, {"--country", "FRA", "--enews", "--password-stdin", "--json"}), "bob's secret\n"});
  EXPECT_EQ("", CheckDocument("account-register", made.out)) << made.err;
  for (const char* field : {"passwd=bob's secret", "critical_release=false", "enews=true", "country=FRA"})
    EXPECT_THAT(LastForm(Cloud(), kRegisterPath), testing::Contains(field));
  EXPECT_EQ(3, Tool({"is-signed-in"}).exit);
  EXPECT_EQ(0, RunTool({{"login", "--email", "bob@example.com", "--password-stdin"}, "bob's secret"}).exit);

  const Result used = AtPrompts(bob, {{"Password: ", "typed"}, {"Password again: ", "typed"}});
  EXPECT_EQ(1, used.exit);
  EXPECT_THAT(used.err, testing::AllOf(HasSubstr("varnkivo login --email bob@example.com"), Not(HasSubstr("typed"))));
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

TEST_F(ToolTest, SetSendsWhatIsGivenAndThePasswordWithTheEmailOnly) {
  SignInLongAgo();
  const Words fixed = {"id=1001", "auth_key=" + AuthKey(), std::string("serial_no=") + kSerial};
  const struct {
    Words options, sent;
  } changes[] = {{{"--name", "Ann B", "--enews", "yes", "--critical-release", "no"},
                  {"full_name=Ann B", "enews=true", "critical_release=false"}},
                 {{"--local-promotion", "no", "--versions", "LUM-7.2"},
                  {"enews_local_promotion=false", "critical_version_list=LUM-7.2"}},
                 {{"--country", "FRA", "--language", "fre", "--timezone", "Europe/Paris"},
                  {"country=FRA", "notify_lang=fre", "timezone=Europe/Paris"}},
                 {{"--email", "new@example.com", "--password-stdin"},
                  {std::string("passwd=") + kPassword, "email=new@example.com"}}};
  for (const auto& change : changes) {
    const Result result = RunTool({With({"account", "set", "--json"}, change.options), kPassword});
    EXPECT_EQ("", CheckDocument("account-set", result.out)) << result.err;
    EXPECT_EQ(With(fixed, change.sent), LastForm(Cloud(), kUpdatePath));
  }
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

TEST_F(ToolTest, ANewPasswordReplacesTheCurrentOneAndIsSeenNowhere) {
  SignInLongAgo();
  const Words piped = {"account", "password", "--password-stdin", "--json"};
  const Result first = RunTool({piped, std::string(kPassword) + "\r\nsecond one\n"});
  EXPECT_EQ("", CheckDocument("account-password", first.out)) << first.err;
  EXPECT_EQ("second one", Cloud().FindAccount(kEmail)->password);
  const Result typed = AtPrompts(
      {"account", "password"},
      {{"Current password: ", "second one"}, {"New password: ", "third one"}, {"New password again: ", "third one"}});
  const Result wrong = RunTool({piped, "wrong one\nfourth one"});
  EXPECT_EQ(4, wrong.exit);
  EXPECT_THAT(ErrorOf(wrong)["cause"].asString(), HasSubstr("current password is wrong"));
  EXPECT_EQ("third one", Cloud().FindAccount(kEmail)->password) << typed.err;
  const std::string seen = first.out + first.err + typed.err + wrong.err + Read("/var/log/syslog");
  for (const char* secret : {kPassword, "second one", "third one", "fourth one", "wrong one"})
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
}

TEST_F(ToolTest, AMistakeInAChangeSendsNothingAndARefusalHasItsExitCode) {
  const Words set = {"account", "set", "--name", "N"}, password = {"account", "password"};
  for (const auto& verb : {set, password}) EXPECT_EQ(3, Tool(verb).exit);
  SignInLongAgo();
  const std::pair<Words, std::string> mistakes[] = {
      {{"account", "set", "--enews", "perhaps"}, ""},
      {{"account", "set", "--email", "n@x.example"}, "x"},  // no terminal to ask for the password
      {{"account", "set", "--name", "a\nb"}, ""},
      {{"account", "password", "--password-stdin"}, "one\ntwo\nthree\n"},
      {{"account", "register", "--email", "e@x.example", "--name", "", "--password-stdin"}, "x"}};
  for (const auto& [arguments, input] : mistakes) EXPECT_EQ(2, RunTool({arguments, input}).exit);
  EXPECT_EQ(0u, Cloud().Connections());

  const Words enrol = {"account", "register", "--email", "e@x", "--name", "E", "--password-stdin"};
  const struct {
    const Words& verb;
    const char *path, *answer;
    int exit;
    const char *cause, *run;
  } answers[] = {
      {enrol, kRegisterPath, "badnetwork", 5, "network failed", "varnkivo account register --email e@x --name E"},
      {enrol, kRegisterPath, "serial_exceed_max_account_register", 1, "as many accounts", "varnkivo login"},
      {enrol, kRegisterPath, "badauth", 4, "device's token", "varnkivo paths"},
      {set, kUpdatePath, "badauth", 4, "no longer accepts", "varnkivo account show --refresh"},
      {set, kUpdatePath, "account_not_found", 4, "no longer exists", "varnkivo login"}};
  for (const auto& answer : answers) {
    SCOPED_TRACE(answer.answer);
    Cloud().QueueFault(answer.path, Fault::Answer(400, answer.answer));
    const Json::Value error = ErrorOf(RunTool({With(answer.verb, {"--json"}), "a password\n"}));
    EXPECT_EQ(answer.exit, error["exit_code"].asInt());
    EXPECT_THAT(error["cause"].asString(), HasSubstr(answer.cause));
    EXPECT_EQ(answer.run, error["run"].asString());
  }
}

}  // namespace
}  // namespace tooltest
