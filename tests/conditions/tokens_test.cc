// Tokens where it matters most: two hundred processes at the second of expiry, a kill between the server's rotation and
// the save, a full disk, and months of renewals.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include <algorithm>
#include <chrono>

#include "process.h"

using namespace conditions;
using varnkivo::AccountPkceService;

namespace {

constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kSerial[] = "2040VKN000001";

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kProcesses = 20, kKills = 5, kRenewals = 100;
constexpr bool kTimed = false;
#else
constexpr int kProcesses = 200, kKills = 40, kRenewals = 2000;
constexpr bool kTimed = true;
#endif

std::string Token() {
  try {
    return AccountPkceService().GetAccessToken();
  } catch (const varnkivo::KivoException& error) {
    return "code " + std::to_string(error.GetCode());
  }
}

/// Signed in, with a token that has expired an hour ago.
kivosim::Simulator& ExpiredCloud() {
  auto& cloud = FreshCloud();
  unlink(kTokenFile);
  EXPECT_EQ("login 0 0", InChild(Login));
  const kivosim::TokenSet set = cloud.IssueTokens(kEmail, "kivo-device", kSerial, std::chrono::hours(2));
  WriteFile(kTokenFile, set.fileText);
  EXPECT_TRUE(chmod(kTokenFile, 0600) == 0 && chown(kTokenFile, 934, 934) == 0);
  cloud.ClearJournal();
  return cloud;
}

TEST(Tokens, ManyProcessesAtExpiryRenewOnceAndAllGetTheSame) {
  auto& cloud = ExpiredCloud();
  int go[2], answers[2];
  ASSERT_TRUE(pipe(go) == 0 && pipe(answers) == 0);
  for (int i = 0; i < kProcesses; ++i) {
    if (fork() != 0) continue;
    close(go[1]);
    char start;
    while (read(go[0], &start, 1) > 0) continue;  // until the parent opens the gate
    const auto begun = std::chrono::steady_clock::now();
    const std::string token = Token();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begun;
    const std::string line = token + " " + (kTimed && taken.count() > 5 ? "slow" : "in time") + "\n";
    _exit(write(answers[1], line.data(), line.size()) == static_cast<ssize_t>(line.size()) ? 0 : 1);
  }
  close(answers[1]);
  close(go[0]);
  close(go[1]);
  std::string all;
  char block[4096];
  for (ssize_t got; (got = read(answers[0], block, sizeof block)) > 0;)
    all.append(block, static_cast<std::size_t>(got));
  close(answers[0]);
  for (int i = 0, status = -1; i < kProcesses; ++i) EXPECT_TRUE(wait(&status) > 0 && status == 0) << status;
  const std::string expected = InChild(Token) + " in time\n";
  std::string same;
  for (int i = 0; i < kProcesses; ++i) same += expected;
  EXPECT_TRUE(all == same) << all.substr(0, 400);
  EXPECT_EQ(1u, cloud.Requests().size());
}

TEST(Tokens, AKillBetweenTheRotationAndTheSaveHealsWithoutAPerson) {
  auto& cloud = ExpiredCloud();
  for (int i = 0; i < kKills; ++i) {
    cloud.PassTime(std::chrono::hours(2));
    std::string file = ReadFile(kTokenFile);
    const std::size_t at = file.find("\"created_at\":");
    file.replace(at + 13, file.find_first_of(",}", at) - at - 13, "1000");
    WriteFile(kTokenFile, file);
    int victim[2];
    ASSERT_EQ(0, pipe(victim));
    const pid_t child = fork();
    if (child == 0) {
      char start;
      if (read(victim[0], &start, 1) != 1) _exit(1);
      Token();
      _exit(0);
    }
    cloud.QueueFault("oauth2/token", kivosim::Fault::AllButLastByteThen([child] { kill(child, SIGKILL); }));
    ASSERT_EQ(1, write(victim[1], "x", 1));
    int status = 0;
    waitpid(child, &status, 0);
    close(victim[0]);
    close(victim[1]);
    EXPECT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_THAT(InChild(Token), testing::Not(testing::StartsWith("code"))) << i;
  }
  EXPECT_THAT(InChild(Query), "query 0 0") << "still signed in";
}

TEST(Tokens, AFullDiskLosesNothingAndSpendsNothing) {
  auto& cloud = ExpiredCloud();
  const std::string record = ReadFile(kRecord), tokens = ReadFile(kTokenFile);
  ASSERT_EQ(0, mount("small", kFolder, "tmpfs", 0, "size=64k,nr_inodes=16,mode=0700,uid=934,gid=934"));
  WriteFile(kRecord, record);
  WriteFile(kTokenFile, tokens);
  EXPECT_EQ("code 2 code 2 code 2 code 2 code 2", InChild([] {
              std::string results = Token();
              for (int i = 0; i < 4; ++i) results += " " + Token();
              return results;
            }));
  EXPECT_EQ(0u, cloud.Connections());
  EXPECT_EQ(tokens, ReadFile(kTokenFile));
  EXPECT_EQ(record, ReadFile(kRecord));
  ASSERT_EQ(0, mount("small", kFolder, "tmpfs", MS_REMOUNT, "size=1m"));
  EXPECT_THAT(InChild(Token), testing::Not(testing::StartsWith("code")));
  EXPECT_EQ(1u, cloud.Requests().size());
  EXPECT_EQ(0, umount(kFolder));
}

TEST(Tokens, MonthsOfRenewalsLoseNoneAndLeaveNothingBehind) {
  auto& cloud = ExpiredCloud();
  cloud.SetTokenLifetime(std::chrono::seconds(-1));
  EXPECT_EQ("0 failed, descriptors +0, memory flat", InChild([] {
              const AccountPkceService service;
              int failed = 0;
              std::string last;
              const auto renew = [&](int times) {
                for (int i = 0; i < times; ++i) {
                  std::string token;
                  try {
                    token = service.GetAccessToken();
                  } catch (const std::exception&) {
                  }
                  failed += token.empty() || token == last;
                  last = token;
                }
              };
              renew(100);
              const std::size_t descriptors = OpenDescriptors();
              const long before = ResidentKibibytes();
              renew(kRenewals - 100);
              const long grown = kTimed ? ResidentKibibytes() - before : 0;
              return std::to_string(failed) + " failed, descriptors +" +
                     std::to_string(OpenDescriptors() - descriptors) + ", memory " +
                     (grown <= 256 ? "flat" : "+" + std::to_string(grown) + " KiB");
            }));
  EXPECT_EQ(static_cast<std::uint64_t>(std::max(kRenewals, 100)), cloud.TokenRequests()["refresh_token"].granted);
}

}  // namespace
