// How secrets come in, and that they come out nowhere.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tool_fixture.h"

namespace tooltest {
namespace {

using testing::HasSubstr;
using testing::Not;

const Words kByEmail = {"login", "--email", kEmail}, kPiped = With(kByEmail, {"--password-stdin", "--verify-only"});

std::string LastPassword(const kivosim::Simulator& cloud) {
  const auto requests = cloud.Requests(kLoginPath);
  return requests.empty() ? "(none)" : requests.back().Param("passwd");
}

TEST_F(ToolTest, APasswordArrivesByteForByteWithoutItsLastNewlineOrNotAtAll) {
  const struct {
    std::string input, sent;
    const char* mistake = nullptr;
  } inputs[] = {{"dos\r\n", "dos"},
                {"\xC3\xBC&=%+ \t\"'\\$`", "\xC3\xBC&=%+ \t\"'\\$`"},
                {std::string(4094, 'x') + "\n", std::string(4094, 'x')},
                {"\n", "(none)", "nothing"},
                {"two\nlines\n", "(none)", "more than one line"},
                {std::string("nul\0byte", 8), "(none)", "NUL byte"},
                {std::string(4096, 'x'), "(none)", "more than 4095 bytes"}};
  for (const auto& input : inputs) {
    Cloud().ClearJournal();
    const Result result = RunTool({kPiped, input.input});
    EXPECT_EQ(input.mistake ? 2 : 4, result.exit);
    EXPECT_THAT(result.err, HasSubstr(input.mistake ? input.mistake : "refused"));
    EXPECT_EQ(input.sent, LastPassword(Cloud()));
  }
}

TEST_F(ToolTest, ASecretFileIsOpenedWithTheCallersRightsAndRefusedWhereOthersCanReadIt) {
  const std::string path = "/tmp/tool test.password", folder = "/run/tool_test", variable = "CREDENTIALS_DIRECTORY=";
  const struct {
    mode_t mode;
    uid_t owner, caller;
    int exit;
  } files[] = {{0400, 0, 0, 0}, {0640, 0, 0, 7}, {0604, 0, 0, 7}, {0600, 1000, 0, 7}, {0600, 0, 1000, 2}};
  for (const auto& file : files) {
    SCOPED_TRACE(testing::Message() << std::oct << file.mode << " " << file.caller);
    Write(path, std::string(kPassword) + "\n", file.mode);
    ASSERT_EQ(0, chown(path.c_str(), file.owner, 0));
    Cloud().ClearJournal();
    const Result result = RunTool({With(kByEmail, {"--password-file", path, "--json"}), "", {}, false, file.caller, 0});
    EXPECT_EQ(file.exit, result.exit);
    EXPECT_EQ(file.exit == 0, Cloud().Connections() > 0);
    EXPECT_EQ(file.exit == 7, result.err.find("chmod 600 '" + path + "'") != std::string::npos);
  }
  std::filesystem::create_directories(folder);
  Write(folder + "/varnkivo.password", kPassword, 0440);
  EXPECT_EQ(0, RunTool({kByEmail, "", {variable + folder}}).exit);
  Write(folder + "/varnkivo.auth_key", AuthKey(), 0400);
  EXPECT_EQ(0, RunTool({{"login", "--key", "--user-id", kUserId, "--yes"}, "", {variable + folder}}).exit);
  RunTool({kPiped, "piped", {variable + folder}});
  EXPECT_EQ("piped", LastPassword(Cloud()));
  Write(folder + "/varnkivo.password", kPassword, 0444);
  EXPECT_EQ(7, RunTool({kByEmail, "", {variable + folder}}).exit);
}

TEST_F(ToolTest, NoSecretIsSeenInProcessesOutputsOrLogs) {
  std::string seen;
  {
    Cloud().QueueFault(kLoginPath, kivosim::Fault::NeverAnswer());
    ToolProcess tool({With(kByEmail, {"--password-stdin"}), std::string(kPassword) + "\n"});
    while (Cloud().Requests(kLoginPath).empty()) usleep(1000);
    const std::string process = "/proc/" + std::to_string(tool.Pid());
    seen += Read(process + "/cmdline") + Read(process + "/environ");
    EXPECT_THAT(seen, HasSubstr("--password-stdin"));  // it did look at the tool
  }
  for (const Words& more : {Words{}, {"--json"}, {"--verify-only"}}) {
    for (const char* password : {kPassword, "wrong horse"}) {
      const Result result = LogIn(more, password);
      seen += result.out + result.err;
    }
  }
  for (const Words& query : {Words{"status"}, {"whoami"}, {"paths"}, {"account", "show"}})
    seen += Tool(query).out + Tool(With(query, {"--json"})).out;
  seen += Read("/var/log/syslog") + Read("/usr/varn/var/log/events.jsonl");
  const std::string key = AuthKey();
  for (const std::string& secret : {std::string(kPassword), std::string("wrong horse"), key})
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
  EXPECT_EQ(key, Parse(Tool({"account", "show", "--json", "--show-secrets"}).out)["auth_key"].asString());
}

}  // namespace
}  // namespace tooltest
