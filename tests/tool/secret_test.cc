// How secrets come in, and that they come out nowhere.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string LastPassword(const kivosim::Simulator& cloud) {
  const auto requests = cloud.Requests(kLoginPath);
  return requests.empty() ? "(none)" : requests.back().Param("passwd");
}

TEST_F(ToolTest, APasswordArrivesByteForByteWithoutItsLastNewlineOrNotAtAll) {
  const struct {
    std::string input, sent;
    const char* mistake = nullptr;
  } inputs[] = {{"plain\n", "plain"},
                {"dos\r\n", "dos"},
                {" blanks \n", " blanks "},
                {"\xC3\xBC&=%+ \t\"'\\$`", "\xC3\xBC&=%+ \t\"'\\$`"},
                {std::string(4094, 'x') + "\n", std::string(4094, 'x')},
                {"", "", "nothing"},
                {"\n", "", "nothing"},
                {"two\nlines\n", "", "more than one line"},
                {std::string("nul\0byte", 8), "", "NUL byte"},
                {std::string(4096, 'x'), "", "more than 4095 bytes"}};
  for (const auto& input : inputs) {
    Cloud().ClearJournal();
    const Result result = RunTool({{"login", "--email", kEmail, "--password-stdin", "--verify-only"}, input.input});
    EXPECT_EQ(input.mistake ? 2 : 4, result.exit);
    EXPECT_THAT(result.err, HasSubstr(input.mistake ? input.mistake : "refused"));
    EXPECT_EQ(input.mistake ? "(none)" : input.sent, LastPassword(Cloud()));
  }
}

TEST_F(ToolTest, ASecretFileIsOpenedWithTheCallersRightsAndRefusedWhereOthersCanReadIt) {
  const std::string path = "/tmp/tool test.password";
  const struct {
    mode_t mode;
    uid_t owner, caller;
    int exit;
  } files[] = {{0400, 0, 0, 0}, {0640, 0, 0, 7},    {0604, 0, 0, 7},
               {0620, 0, 0, 7}, {0600, 1000, 0, 7}, {0600, 0, 1000, 2}};
  for (const auto& file : files) {
    SCOPED_TRACE(testing::Message() << std::oct << file.mode << " " << file.caller);
    Write(path, std::string(kPassword) + "\n", file.mode);
    ASSERT_EQ(0, chown(path.c_str(), file.owner, 0));
    Cloud().ClearJournal();
    const Result result =
        RunTool({{"login", "--email", kEmail, "--password-file", path, "--json"}, "", {}, false, file.caller, 0});
    EXPECT_EQ(file.exit, result.exit);
    EXPECT_EQ(file.exit == 0, Cloud().Connections() > 0);
    if (file.exit == 7) {
      EXPECT_EQ("chmod 600 '" + path + "'", ErrorOf(result)["run"].asString());
    }
  }
  EXPECT_EQ(2, Tool({"login", "--email", kEmail, "--password-file", "/tmp"}).exit);
}

TEST_F(ToolTest, TheServiceManagersCredentialIsUsedWhenNothingElseIsGiven) {
  const std::string folder = "/run/tool_test_credentials";
  const std::string variable = "CREDENTIALS_DIRECTORY=" + folder;
  std::filesystem::create_directories(folder);
  Write(folder + "/varnkivo.password", kPassword, 0440);
  EXPECT_EQ(0, RunTool({{"login", "--email", kEmail}, "", {variable}}).exit);
  Write(folder + "/varnkivo.auth_key", AuthKey(), 0400);
  EXPECT_EQ(0, RunTool({{"login", "--key", "--user-id", kUserId, "--yes"}, "", {variable}}).exit);
  RunTool({{"login", "--email", kEmail, "--password-stdin", "--verify-only"}, "typed", {variable}});
  EXPECT_EQ("typed", LastPassword(Cloud()));
  Write(folder + "/varnkivo.password", kPassword, 0444);
  EXPECT_EQ(7, RunTool({{"login", "--email", kEmail}, "", {variable}}).exit);
  EXPECT_EQ(2, RunTool({{"login", "--email", kEmail}, "", {"CREDENTIALS_DIRECTORY=/nowhere"}}).exit);
  std::filesystem::remove_all(folder);
}

/// Command lines and environments of all processes.
std::string VisibleToEverybody() {
  std::string all;
  for (const auto& process : std::filesystem::directory_iterator("/proc")) {
    if (!isdigit(static_cast<unsigned char>(process.path().filename().c_str()[0]))) continue;
    if (process.path().filename() == std::to_string(getpid())) continue;
    for (const char* name : {"cmdline", "environ"}) {
      std::ifstream file(process.path() / name, std::ios::binary);
      all.append(std::istreambuf_iterator<char>(file), {});
    }
  }
  return all;
}

TEST_F(ToolTest, NoSecretIsSeenInProcessesOutputsOrLogs) {
  kivosim::Fault slow = kivosim::Fault::NeverAnswer();
  Cloud().QueueFault(kLoginPath, slow);
  {
    ToolProcess tool({{"login", "--email", kEmail, "--password-stdin"}, std::string(kPassword) + "\n"});
    while (Cloud().Requests(kLoginPath).empty()) usleep(1000);
    const std::string visible = VisibleToEverybody();
    EXPECT_THAT(visible,
                HasSubstr("--password-stdin"));  // it did look at the tool
    EXPECT_THAT(visible, Not(HasSubstr(kPassword)));
  }
  std::string seen;
  const auto add = [&](const Result& result) { seen += result.out + result.err; };
  for (const auto& more : {std::vector<std::string>{}, {"--json"}, {"--verify-only"}}) {
    for (const char* password : {kPassword, "wrong horse"}) add(LogIn(more, password));
  }
  for (std::vector<std::string> query :
       {std::vector<std::string>{"status"}, {"whoami"}, {"paths"}, {"account", "show"}}) {
    add(Tool(query));
    query.push_back("--json");
    add(Tool(query));
  }
  seen += Read("/var/log/syslog") + Read("/usr/varn/var/log/events.jsonl");
  const std::string key = AuthKey();
  ASSERT_NE("", key);
  for (const std::string& secret : {std::string(kPassword), std::string("wrong horse"), key}) {
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
  }
  EXPECT_EQ(key, Parse(Tool({"account", "show", "--json", "--show-secrets"}).out)["auth_key"].asString());
  EXPECT_THAT(Tool({"account", "show", "--show-secrets"}).out, HasSubstr(key));
}

}  // namespace
}  // namespace tooltest
