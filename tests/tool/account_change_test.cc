// Registering an account, changing it, and its password: what is sent, what is asked for, and how it ends.
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using kivosim::Fault;
using testing::HasSubstr;
using testing::Not;

constexpr char kRegisterPath[] = "device/api/user/register", kUpdatePath[] = "device/api/user/update";

/// Runs the tool on a terminal and types each answer when its prompt is shown. All the terminal showed is `err`.
Result AtPrompts(std::vector<std::string> arguments, const std::vector<std::pair<std::string, std::string>>& answers) {
  std::vector<char*> argv = {const_cast<char*>("varnkivo")};
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  int terminal = -1, status = 0;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) _exit(execv(VARNKIVO_TOOL_PATH, argv.data()));
  Result result;
  std::size_t next = 0, seen = 0;
  char buffer[1024];
  for (ssize_t got = 0; (got = read(terminal, buffer, sizeof buffer)) > 0;) {
    result.err.append(buffer, static_cast<std::size_t>(got));
    if (next == answers.size() || result.err.find(answers[next].first, seen) == std::string::npos) continue;
    seen = result.err.size();
    const std::string line = answers[next++].second + "\n";
    if (write(terminal, line.data(), line.size()) < 0) ADD_FAILURE() << "cannot type";
  }
  waitpid(child, &status, 0);
  close(terminal);
  result.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128;
  return result;
}

/// "name=value" of the last request there, behind the sender's own fields.
std::vector<std::string> LastForm(const kivosim::Simulator& cloud, const char* path) {
  std::vector<std::string> fields;
  const auto requests = cloud.Requests(path);
  for (const auto& [name, value] : requests.at(requests.size() - 1).form) fields.push_back(name + "=" + value);
  return {fields.begin() + 2, fields.end()};
}

TEST_F(ToolTest, AnAccountIsRegisteredAndCanThenSignIn) {
  const std::vector<std::string> bob = {"account", "register", "--email", "bob@example.com", "--name", "Bob"};
  std::vector<std::string> more = bob;
  more.insert(more.end(), {"--country", "FRA", "--enews", "--password-stdin", "--json"});
  const Result made = RunTool({more, "bob's secret\n"});
  EXPECT_EQ(0, made.exit) << made.err;
  EXPECT_EQ("", CheckDocument("account-register", made.out));
  for (const char* field : {"passwd=bob's secret", "critical_release=false", "enews=true", "country=FRA"}) {
    EXPECT_THAT(LastForm(Cloud(), kRegisterPath), testing::Contains(field));
  }
  EXPECT_EQ(3, Tool({"is-signed-in"}).exit);
  EXPECT_EQ(0, RunTool({{"login", "--email", "bob@example.com", "--password-stdin"}, "bob's secret"}).exit);

  EXPECT_THAT(AtPrompts(bob, {{"Password: ", "one"}, {"Password again: ", "other"}}).err, HasSubstr("differ"));
  EXPECT_EQ(1u, Cloud().Requests(kRegisterPath).size());
  const Result used = AtPrompts(bob, {{"Password: ", "typed"}, {"Password again: ", "typed"}});
  EXPECT_EQ(1, used.exit);
  EXPECT_THAT(used.err, HasSubstr("varnkivo login --email bob@example.com"));
  EXPECT_THAT(used.err, Not(HasSubstr("typed")));
  EXPECT_EQ("typed", Cloud().Requests(kRegisterPath).at(1).Param("passwd"));
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

TEST_F(ToolTest, SetSendsWhatIsGivenAndThePasswordWithTheEmailOnly) {
  SignInLongAgo();
  const std::vector<std::string> fixed = {"id=1001", "auth_key=" + AuthKey(), std::string("serial_no=") + kSerial};
  const struct {
    std::vector<std::string> options;
    std::vector<std::string> sent;
  } changes[] = {{{"--name", "Ann B", "--enews", "yes", "--critical-release", "no"},
                  {"full_name=Ann B", "enews=true", "critical_release=false"}},
                 {{"--local-promotion", "no", "--versions", "LUM-7.2"},
                  {"enews_local_promotion=false", "critical_version_list=LUM-7.2"}},
                 {{"--country", "FRA", "--language", "fre", "--timezone", "Europe/Paris"},
                  {"country=FRA", "notify_lang=fre", "timezone=Europe/Paris"}},
                 {{"--email", "new@example.com", "--password-stdin"},
                  {std::string("passwd=") + kPassword, "email=new@example.com"}}};
  for (const auto& change : changes) {
    SCOPED_TRACE(change.options[0]);
    std::vector<std::string> arguments = {"account", "set", "--json"}, expected = fixed;
    arguments.insert(arguments.end(), change.options.begin(), change.options.end());
    expected.insert(expected.end(), change.sent.begin(), change.sent.end());
    const Result result = RunTool({arguments, kPassword});
    EXPECT_EQ(0, result.exit) << result.err;
    EXPECT_EQ("", CheckDocument("account-set", result.out));
    EXPECT_EQ(expected, LastForm(Cloud(), kUpdatePath));
  }
  EXPECT_THAT(Cloud().Complaints(), testing::IsEmpty());
}

TEST_F(ToolTest, ANewPasswordReplacesTheCurrentOneAndIsSeenNowhere) {
  SignInLongAgo();
  const std::vector<std::string> piped = {"account", "password", "--password-stdin", "--json"};
  const Result first = RunTool({piped, std::string(kPassword) + "\r\nsecond one\n"});
  EXPECT_EQ("", CheckDocument("account-password", first.out)) << first.err;
  EXPECT_EQ("second one", Cloud().FindAccount(kEmail)->password);
  const Result typed = AtPrompts(
      {"account", "password"},
      {{"Current password: ", "second one"}, {"New password: ", "third one"}, {"New password again: ", "third one"}});
  EXPECT_EQ(0, typed.exit) << typed.err;
  const Result wrong = RunTool({piped, "wrong one\nfourth one"});
  EXPECT_EQ(4, wrong.exit);
  EXPECT_THAT(ErrorOf(wrong)["cause"].asString(), HasSubstr("current password is wrong"));
  EXPECT_EQ("third one", Cloud().FindAccount(kEmail)->password);
  const std::string seen = first.out + first.err + typed.err + wrong.err + Read("/var/log/syslog");
  for (const char* secret : {kPassword, "second one", "third one", "fourth one", "wrong one"}) {
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
  }
}

TEST_F(ToolTest, AMistakeInAChangeSendsNothingAndARefusalHasItsExitCode) {
  const std::vector<std::string> set = {"account", "set", "--name", "N"}, password = {"account", "password"};
  for (const auto& verb : {set, password}) EXPECT_EQ(3, Tool(verb).exit);
  SignInLongAgo();
  const struct {
    std::vector<std::string> arguments;
    std::string input;
  } mistakes[] = {{{"account", "set"}, ""},
                  {{"account", "set", "--enews", "perhaps"}, ""},
                  {{"account", "set", "--name", "N", "--password-stdin"}, "x"},
                  {{"account", "set", "--email", "n@x.example"}, "x"},  // no terminal to ask for the password
                  {{"account", "set", "--name", "a\nb"}, ""},
                  {password, "a\nb\n"},
                  {{"account", "password", "--password-stdin"}, "only one\n"},
                  {{"account", "password", "--password-stdin"}, "one\ntwo\nthree\n"},
                  {{"account", "register", "--email", "e@x.example", "--name", "", "--password-stdin"}, "x"}};
  for (const auto& mistake : mistakes) EXPECT_EQ(2, RunTool({mistake.arguments, mistake.input}).exit);
  EXPECT_EQ(0u, Cloud().Connections());

  const std::vector<std::string> enrol = {"account", "register", "--email", "e@x", "--name", "E", "--password-stdin"};
  const struct {
    const std::vector<std::string>& verb;
    const char* path;
    const char* answer;
    int exit;
    const char* cause;
  } answers[] = {{enrol, kRegisterPath, "serial_exceed_max_account_register", 1, "as many accounts"},
                 {enrol, kRegisterPath, "badauth", 4, "device's token"},
                 {set, kUpdatePath, "badauth", 4, "no longer accepts"},
                 {set, kUpdatePath, "account_not_found", 4, "no longer exists"},
                 {set, kUpdatePath, "badnetwork", 5, "network failed"}};
  for (const auto& answer : answers) {
    SCOPED_TRACE(answer.answer);
    Cloud().QueueFault(answer.path, Fault::Answer(400, answer.answer));
    std::vector<std::string> arguments = answer.verb;
    arguments.push_back("--json");
    const Result result = RunTool({arguments, "a password\n"});
    EXPECT_EQ(answer.exit, result.exit);
    EXPECT_THAT(ErrorOf(result)["cause"].asString(), HasSubstr(answer.cause));
  }
}

}  // namespace
}  // namespace tooltest
