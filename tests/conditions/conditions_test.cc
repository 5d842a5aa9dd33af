// The library in processes that are not kind to it: signals, children, threads, and a hundred of them at one moment. A
// process for each condition, beside one simulator: what a test does to a process ends with it.
#include <gmock/gmock.h>
#include <json/value.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/file_lock.h>
#include <varnkivo/package_pkce_client.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "cloud.h"
#include "process.h"

using namespace testsupport;
namespace fs = std::filesystem;

namespace {

constexpr char kEmail[] = "ann@example.com", kPassword[] = "correct horse", kSerial[] = "2040VKN000001";
const std::string kFolder = "/usr/varn/etc/varnholt-account/private/", kRecord = kFolder + "user.conf";
const std::string kTokenFile = kFolder + "lum_token.json";

std::string Outcome(const char* name, int result) {
  return std::string(name) + " " + std::to_string(result) + " " + std::to_string(VARNKIVOErrGet());
}

std::string Login() {
  Json::Value response;
  return Outcome("login", VARNKIVOAccountLogin(kEmail, kPassword, response, false));
}

/// A query that asks the server.
std::string Query() {
  varnkivo::User().SetLastQueryTime(0);
  Json::Value out;
  VARNKIVOErrSet(0);
  return Outcome("query", VARNKIVOAccountQueryInfo(out, true, true));
}

std::string Remove() { return "remove " + std::to_string(VARNKIVOAccountRemove()); }

/// The cloud as new, where Ann can sign in; with `signIn` she has, and her token has expired an hour ago.
kivosim::Simulator& FreshCloud(bool signIn = false) {
  auto& cloud = Cloud::Sim();
  cloud.Reset();
  cloud.AddAccount({kEmail, kPassword, "1001"});
  for (const std::string& path :
       {kRecord, kTokenFile, kFolder + "photos_token.json", std::string("/tmp/account_photos_pkce_client.conf")})
    fs::remove(path);
  if (!signIn) return cloud;
  EXPECT_EQ("login 0 0", InChild(Login));
  WritePrivateFile(kTokenFile, cloud.IssueTokens(kEmail, "kivo-device", kSerial, std::chrono::hours(2)).fileText);
  cloud.ClearJournal();
  return cloud;
}

/// Beside a test, again and again until it is left.
class Beside {
 public:
  explicit Beside(const std::function<void()>& work)
      : thread_([this, work] {
          while (!done_) work();
        }) {}
  Beside(const Beside&) = delete;
  Beside& operator=(const Beside&) = delete;
  ~Beside() {
    done_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> done_{false};
  std::thread thread_;
};

TEST(Signals, AThousandASecondAndAServerThatResetsEndNoProcess) {
  auto& cloud = FreshCloud();
  EXPECT_EQ("login 0 0, query 0 0, remove 65280", InChild([] {
              struct sigaction action {};
              action.sa_handler = [](int) {};  // and no SA_RESTART
              sigaction(SIGUSR1, &action, nullptr);
              const Beside storm([target = pthread_self()] {
                pthread_kill(target, SIGUSR1);
                usleep(1000);
              });
              std::string result = Login();  // one after the other: the operands of + have no order
              for (const auto& step : {Query, Remove}) result += ", " + step();
              return result;
            }));
  for (const bool handshake : {false, true}) {
    if (handshake)
      cloud.QueueConnectionFault({kivosim::ConnectionFault::Kind::kResetInHandshake});
    else
      cloud.QueueFault("*", kivosim::Fault::ResetAfterRequest());
    EXPECT_EQ("login -1 4", InChild([] {
                signal(SIGPIPE, SIG_DFL);
                return Login();
              }));
  }
}

TEST(Children, EndWhileOtherThreadsLogAndAreNotWaitedForForEverWhereAnotherThreadReapsThem) {
  FreshCloud(true);
  EXPECT_EQ("0 hung, remove -1 or 65280", InChild([] {
              const Beside chatter([] {
                syslog(LOG_INFO, "busy");
                usleep(1000);
              });
              int wrong = 0;
              for (int i = 0; i < 250; ++i) wrong += VARNKIVOAccountRemove() != 65280;
              const Beside reaper([] {
                waitpid(-1, nullptr, WNOHANG);
                usleep(100);
              });
              const std::string last = Remove();
              const bool known = last == "remove -1" || last == "remove 65280";
              return std::to_string(wrong) + " hung, " + (known ? "remove -1 or 65280" : last);
            }));
  EXPECT_EQ("none", ModeAndOwner(kRecord));
}

TEST(Threads, RaisedIdsAndUmaskAreBackWhenAllAreDone) {
  FreshCloud(true);
  EXPECT_EQ("0 wrong, 1000,1000,0 1000,1000,0, 18", InChild([] {
              umask(022);
              if (setresgid(1000, 1000, 0) != 0 || setresuid(1000, 1000, 0) != 0) return std::string("ids not lowered");
              std::atomic<int> wrong{0};
              std::vector<std::thread> threads;
              for (int t = 0; t < 8; ++t)
                threads.emplace_back([&wrong, t] {
                  for (int i = 0; i < 100; ++i) {
                    wrong += varnkivo::User().GetEmail() != kEmail;
                    const std::string path = "/tmp/lock" + std::to_string(t) + "-" + std::to_string(i);
                    wrong += !varnkivo::FileLock(path).Lock(1);
                  }
                });
              for (auto& thread : threads) thread.join();
              return std::to_string(wrong) + " wrong, " + Ids() + ", " + std::to_string(umask(0));
            }));
}

// What they throw ends the process.
std::string Token() noexcept { return varnkivo::AccountPkceService().GetAccessToken(); }
std::string PackageToken() noexcept { return varnkivo::PackagePkceClient("photos").GetAccessToken(); }

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

TEST(Tokens, ManyProcessesRenewOnceAtExpiryAndAskOnceForAPackagesFirst) {
  auto& cloud = FreshCloud(true);
  ExpectTheSameInManyProcesses(100, Token);
  EXPECT_EQ(1u, cloud.Requests().size());
  cloud.ClearJournal();
  ExpectTheSameInManyProcesses(64, PackageToken);
  EXPECT_EQ(3u, cloud.Requests().size());
}

}  // namespace
