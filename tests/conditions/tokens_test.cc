// Tokens where it matters most: a hundred processes at the second of expiry, a kill between the server's rotation and
// the save, and months of renewals.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include <chrono>

#include "conditions.h"

using namespace conditions;
using varnkivo::AccountPkceService;
using varnkivo::PackagePkceClient;

namespace {

constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kSerial[] = "2040VKN000001";

std::string TokenOf(std::string (*get)()) {
  try {
    return get();
  } catch (const varnkivo::KivoException& error) {
    return "code " + std::to_string(error.GetCode());
  }
}

std::string Token() {
  return TokenOf([] { return AccountPkceService().GetAccessToken(); });
}

/// Signed in, with a token that has expired an hour ago.
kivosim::Simulator& ExpiredCloud() {
  auto& cloud = FreshCloud();
  unlink(kTokenFile);
  EXPECT_EQ("login 0 0", InChild(Login));
  const kivosim::TokenSet set = cloud.IssueTokens(kEmail, "kivo-device", kSerial, std::chrono::hours(2));
  WritePrivateFile(kTokenFile, set.fileText);
  cloud.ClearJournal();
  return cloud;
}

/// Every one of many processes that ask at one moment gets what one that asks after them gets.
void ExpectTheSameInManyProcesses(int count, std::string (*token)()) {
  int go[2], answers[2];
  ASSERT_TRUE(pipe(go) == 0 && pipe(answers) == 0);
  for (int i = 0; i < count; ++i) {
    if (fork() != 0) continue;
    close(go[1]);
    char start;
    while (read(go[0], &start, 1) > 0) continue;  // until the parent opens the gate
    const std::string line = token() + "\n";
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
  for (int i = 0, status = -1; i < count; ++i) EXPECT_TRUE(wait(&status) > 0 && status == 0) << status;
  const std::string expected = InChild(token) + "\n";
  std::string same;
  for (int i = 0; i < count; ++i) same += expected;
  EXPECT_EQ(0u, expected.find("at-")) << expected;
  EXPECT_TRUE(all == same) << all.substr(0, 400);
}

TEST(Tokens, ManyProcessesAtExpiryRenewOnce) {
  const auto& cloud = ExpiredCloud();
  ExpectTheSameInManyProcesses(20 * kTimes, Token);
  EXPECT_EQ(1u, cloud.Requests().size());
}

TEST(Tokens, ManyProcessesAtAPackagesFirstUseAskOnce) {
  auto& cloud = ExpiredCloud();
  EXPECT_EQ(0u, InChild(Token).find("at-"));
  unlink("/tmp/account_photos_pkce_client.conf");
  unlink((std::string(kFolder) + "photos_token.json").c_str());
  cloud.ClearJournal();
  ExpectTheSameInManyProcesses(64, [] { return TokenOf([] { return PackagePkceClient("photos").GetAccessToken(); }); });
  EXPECT_EQ(3u, cloud.Requests().size());
}

TEST(Tokens, AKillBetweenTheRotationAndTheSaveHealsWithoutAPerson) {
  auto& cloud = ExpiredCloud();
  for (int i = 0; i < 4 * kTimes; ++i) {
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

TEST(Tokens, MonthsOfRenewalsLoseNoneAndLeaveNothingBehind) {
  auto& cloud = ExpiredCloud();
  cloud.SetTokenLifetime(std::chrono::seconds(-1));
  EXPECT_EQ("0 failed, descriptors +0, memory flat", InChild([] {
              const AccountPkceService service;
              std::string last;
              return Soak(200 * kTimes, [&] {
                const std::string before = last;
                try {
                  last = service.GetAccessToken();
                } catch (const std::exception&) {
                  return false;
                }
                return !last.empty() && last != before;
              });
            }));
  EXPECT_EQ(200u * kTimes, cloud.TokenRequests()["refresh_token"].granted);
}

}  // namespace
