// Callers with signals, threads, few descriptors and much patience.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <json/value.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>
#include <varn/platform.h>
#include <varnkivo/file_lock.h>
#include <varnkivo/user.h>
#include <varnkivo/varnkivo.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "process.h"

using namespace conditions;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kRequests = 300, kRemovals = 50;  // the memory is the sanitizer's
constexpr bool kOwnMemory = false;
#else
constexpr int kRequests = 5000, kRemovals = 500;
constexpr bool kOwnMemory = true;
#endif

constexpr std::size_t kIdleClient = 2;  // the idle libcurl handle has a pair of sockets to wake itself

TEST(Signals, AThousandASecondChangeNothing) {
  FreshCloud();
  EXPECT_EQ(kEverythingWell, InChild([] {
              struct sigaction action {};
              action.sa_handler = [](int) {};  // and no SA_RESTART
              sigaction(SIGUSR1, &action, nullptr);
              std::atomic<bool> done{false};
              const pthread_t target = pthread_self();
              std::thread storm([&] {
                while (!done) {
                  pthread_kill(target, SIGUSR1);
                  usleep(1000);
                }
              });
              std::string result = Everything();
              done = true;
              storm.join();
              return result;
            }));
}

TEST(Signals, AServerThatResetsEndsNoProcess) {
  for (const bool handshake : {false, true}) {
    auto& cloud = FreshCloud();
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

TEST(Children, ReapedByTheKernelOrByAnotherThreadAreNotWaitedForForEver) {
  for (const bool thread : {false, true}) {
    FreshCloud();
    const std::string result = InChild([thread] {
      std::string login = Login();
      if (!thread) {
        signal(SIGCHLD, SIG_IGN);
        login += ", " + Remove();
      } else {
        std::atomic<bool> done{false};
        std::thread reaper([&] {
          while (!done) {
            waitpid(-1, nullptr, WNOHANG);
            usleep(100);
          }
        });
        login += ", " + Remove();
        done = true;
        reaper.join();
      }
      return login + (access(kRecord, F_OK) == 0 ? ", a record" : ", no record");
    });
    EXPECT_THAT(result, testing::MatchesRegex(thread ? "login 0 0, remove (-1|65280), no record"
                                                     : "login 0 0, remove -1, no record"));
  }
}

TEST(Children, RemovalsEndWhileOtherThreadsLog) {
  FreshCloud();
  EXPECT_EQ("0 hung", InChild([] {
              std::atomic<bool> done{false};
              const auto chatter = [&] {
                while (!done) {
                  syslog(LOG_INFO, "busy");
                  usleep(1000);
                }
              };
              std::thread one(chatter), two(chatter);
              int wrong = 0;
              for (int i = 0; i < kRemovals; ++i) wrong += VARNKIVOAccountRemove() != 65280;
              done = true;
              one.join();
              two.join();
              return std::to_string(wrong) + " hung";
            }));
}

TEST(Threads, ASlotThatOthersWriteDecidesNothing) {
  FreshCloud();
  EXPECT_EQ("0 accepted", InChild([] {
              std::atomic<bool> done{false};
              std::thread other([&] {
                while (!done) VARNKIVOErrSet(KIVO_ERR_SUCCESS);
              });
              int accepted = 0;
              for (int i = 0; i < 200; ++i) {
                Json::Value response;
                accepted += VARNKIVOAccountLogin(kEmail, "wrong", response, true) == 0;
              }
              done = true;
              other.join();
              return std::to_string(accepted) + " accepted";
            }));
}

TEST(Threads, RaisedIdsAndUmaskAreBackWhenAllAreDone) {
  FreshCloud();
  ASSERT_EQ("login 0 0", InChild(Login));
  EXPECT_EQ("0 wrong, 1000,1000,0 1000,1000,0, 22", InChild([] {
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
              uid_t u[3];
              gid_t g[3];
              getresuid(&u[0], &u[1], &u[2]);
              getresgid(&g[0], &g[1], &g[2]);
              char text[128];
              std::snprintf(text, sizeof text, "%d wrong, %u,%u,%u %u,%u,%u, %o", wrong.load(), u[0], u[1], u[2], g[0],
                            g[1], g[2], umask(0));
              return std::string(text);
            }));
}

TEST(Threads, AProgramThatForksWhileAnotherThreadStartsOneIsNotLeftWaiting) {
  EXPECT_EQ("0 hung", InChild([] {
              std::atomic<bool> done{false};
              std::thread starter([&] {
                while (!done) VLIBCExecl("/bin/true", 0, static_cast<const char*>(nullptr));
              });
              int hung = 0;
              for (int i = 0; i < 20; ++i) {
                const pid_t child = fork();
                if (child == 0) {
                  alarm(20);
                  _exit(VLIBCExecl("/bin/true", 0, static_cast<const char*>(nullptr)));
                }
                int status = -1;
                waitpid(child, &status, 0);
                hung += status != 0;
              }
              done = true;
              starter.join();
              return std::to_string(hung) + " hung";
            }));
}

TEST(Descriptors, FewOfThemGiveACodeAndNoneIsLost) {
  const std::set<int> codes = {KIVO_ERR_SUCCESS,       KIVO_ERR_SEND,       KIVO_ERR_SYSTEM,
                               KIVO_ERR_SERIAL,        KIVO_ERR_MAC,        KIVO_ERR_CONFIG_WRITE,
                               KIVO_ERR_SERVER_CONFIG, KIVO_ERR_NO_ACCOUNT, KIVO_ERR_UNKNOWN};
  int succeeded = 0;
  for (const int spare : {0, 2, 3, 4, 5, 6, 8, 12}) {
    SCOPED_TRACE(spare);
    FreshCloud();
    const std::string result = InChild([spare] {
      syslog(LOG_INFO, "the log has its descriptor");
      std::vector<int> taken;
      const std::size_t before = OpenDescriptors();
      const rlimit few = {16, 16};
      setrlimit(RLIMIT_NOFILE, &few);
      for (int file; (file = open("/dev/null", O_RDONLY)) >= 0;) taken.push_back(file);
      for (int i = 0; i < spare && !taken.empty(); ++i) {
        close(taken.back());
        taken.pop_back();
      }
      std::string outcome = Login();
      if (outcome == "login 0 0") Login();
      for (const int file : taken) close(file);
      return outcome + (OpenDescriptors() <= before + kIdleClient ? "" : ", descriptors lost");
    });
    int value = -1, code = -1;
    char rest[64] = "";
    EXPECT_LE(2, std::sscanf(result.c_str(), "login %d %d%63[^\n]", &value, &code, rest)) << result;
    EXPECT_STREQ("", rest);
    EXPECT_TRUE(codes.count(code)) << result;
    succeeded += value == 0;
    EXPECT_EQ(value == 0, !ReadFile(kRecord).empty()) << "a record without a sign-in, or the other way round";
  }
  EXPECT_LE(1, succeeded) << "sixteen descriptors are enough";
}

TEST(Soak, ManyRequestsLeaveNothingBehind) {
  auto& cloud = FreshCloud();
  cloud.SetHook([&cloud](const kivosim::Request&) {
    cloud.ClearJournal();
    kivosim::Response answer;
    answer.body = "{\"error\":\"good\"}";
    return answer;
  });
  EXPECT_EQ("0 failed, descriptors +0, memory flat", InChild([] {
              int failed = 0;
              const auto send = [&](int times) {
                for (int i = 0; i < times; ++i) {
                  static _tag_libkivo_varn_request_ request = {};
                  request.host = "https://account.kivo.example";
                  request.path = "device/api/test";
                  _tag_libkivo_varn_response_ response = {};
                  failed += VARNKIVOHttpsRequestSend(&request, &response) != 0;
                  VARNKIVOHttpsResponseFree(&response);
                }
              };
              send(200);
              const std::size_t descriptors = OpenDescriptors();
              const long before = ResidentKibibytes();
              send(kRequests);
              const long grown = kOwnMemory ? ResidentKibibytes() - before : 0;
              return std::to_string(failed) + " failed, descriptors +" +
                     std::to_string(OpenDescriptors() - descriptors) + ", memory " +
                     (grown <= 256 ? "flat" : "+" + std::to_string(grown) + " KiB");
            }));
}

}  // namespace
