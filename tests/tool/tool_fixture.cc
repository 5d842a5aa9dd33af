// Resets the device's files between tests; the sandbox has made them its own.
#include "tool_fixture.h"

#include <sys/stat.h>
#include <unistd.h>
#include <varnkivo/user.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace tooltest {

namespace fs = std::filesystem;

ToolTest::ToolTest() {
  Cloud().Reset();
  Cloud().AddAccount({kEmail, kPassword, kUserId});
  std::error_code ignored;
  for (const char* path :
       {kJob, "/tmp/account_query_info.lock", "/usr/varn/var/log/events.jsonl", "/usr/varn/lib/plugins/kivo"})
    fs::remove_all(path, ignored);
  for (const auto& entry : fs::directory_iterator(fs::path(kRecord).parent_path())) fs::remove_all(entry, ignored);
}

kivosim::Simulator& ToolTest::Cloud() {
  static kivosim::Simulator* const cloud = [] {
    auto* made = new kivosim::Simulator;  // lives as long as the process
    made->Start();
    return made;
  }();
  return *cloud;
}

Words With(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

Result ToolTest::LogIn(const Words& more, const std::string& password) {
  return RunTool({With({"login", "--email", kEmail, "--password-stdin"}, more), password + "\n"});
}

void ToolTest::SignInLongAgo() {
  ASSERT_EQ(0, LogIn().exit);
  varnkivo::User().SetLastQueryTime(1000000000);
  Cloud().ClearJournal();
}

kivosim::TokenSet ToolTest::StoreToken(std::chrono::seconds age) {
  const kivosim::TokenSet set = Cloud().IssueTokens(kEmail, "kivo-device", kSerial, age);
  Write(kTokenFile, set.fileText, 0600);
  EXPECT_EQ(0, chown(kTokenFile, 934, 934));
  return set;
}

std::string ToolTest::AuthKey() { return varnkivo::User().GetAuthKey(); }

std::string ToolTest::Read(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void ToolTest::Write(const std::string& path, const std::string& content, mode_t mode) {
  unlink(path.c_str());
  std::ofstream(path) << content;
  ASSERT_EQ(0, chmod(path.c_str(), mode));
}

std::string ToolTest::Snapshot() {
  std::ostringstream out;
  for (const char* root : {"/usr/varn", "/etc", "/etc.defaults"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      struct stat status {};
      lstat(entry.path().c_str(), &status);
      out << entry.path() << ' ' << status.st_mode << ' ' << status.st_uid << ' ' << status.st_mtim.tv_sec << '.'
          << status.st_mtim.tv_nsec << ' ' << status.st_size << '\n';
    }
  }
  return out.str();
}

Json::Value ErrorOf(const Result& result) {
  EXPECT_EQ("", CheckDocument("error", result.err));
  Json::Value error = Parse(result.err);
  EXPECT_EQ(result.exit, error["exit_code"].asInt());
  return error;
}

}  // namespace tooltest
