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

#include "conditions.h"

using namespace conditions;

namespace {

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

constexpr std::size_t kIdleClient = 2;  // the idle libcurl handle has a pair of sockets to wake itself

TEST(Signals, AThousandASecondChangeNothing) {
  FreshCloud();
  EXPECT_EQ("login 0 0, query 0 0, set 0 0, remove 65280", InChild([] {
              struct sigaction action {};
              action.sa_handler = [](int) {};  // and no SA_RESTART
              sigaction(SIGUSR1, &action, nullptr);
              const Beside storm([target = pthread_self()] {
                pthread_kill(target, SIGUSR1);
                usleep(1000);
              });
              std::string result = Login();  // one after the other: the operands of + have no order
              for (const auto& step : {Query, Set, Remove}) result += ", " + step();
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

TEST(Children, ReapedByAnotherThreadAreNotWaitedForForEver) {
  FreshCloud();
  EXPECT_THAT(InChild([] {
                const std::string login = Login();
                const Beside reaper([] {
                  waitpid(-1, nullptr, WNOHANG);
                  usleep(100);
                });
                return login + ", " + Remove();
              }),
              testing::MatchesRegex("login 0 0, remove (-1|65280)"));
  EXPECT_EQ("none", ModeAndOwner(kRecord));
}

TEST(Children, RemovalsEndWhileOtherThreadsLog) {
  FreshCloud();
  EXPECT_EQ("0 hung", InChild([] {
              const Beside chatter([] {
                syslog(LOG_INFO, "busy");
                usleep(1000);
              });
              int wrong = 0;
              for (int i = 0; i < 50 * kTimes; ++i) wrong += VARNKIVOAccountRemove() != 65280;
              return std::to_string(wrong) + " hung";
            }));
}

TEST(Threads, ASlotThatOthersWriteDecidesNothing) {
  FreshCloud();
  EXPECT_EQ("0 accepted", InChild([] {
              const Beside other([] { VARNKIVOErrSet(KIVO_ERR_SUCCESS); });
              int accepted = 0;
              for (int i = 0; i < 50; ++i) {
                Json::Value response;
                accepted += VARNKIVOAccountLogin(kEmail, "wrong", response, true) == 0;
              }
              return std::to_string(accepted) + " accepted";
            }));
}

TEST(Threads, RaisedIdsAndUmaskAreBackWhenAllAreDone) {
  FreshCloud();
  ASSERT_EQ("login 0 0", InChild(Login));
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

TEST(Descriptors, FewOfThemGiveACodeAndNoneIsLost) {
  const std::set<int> codes = {KIVO_ERR_SUCCESS,       KIVO_ERR_SEND,       KIVO_ERR_SYSTEM,
                               KIVO_ERR_SERIAL,        KIVO_ERR_MAC,        KIVO_ERR_CONFIG_WRITE,
                               KIVO_ERR_SERVER_CONFIG, KIVO_ERR_NO_ACCOUNT, KIVO_ERR_UNKNOWN};
  int succeeded = 0;
  for (const int spare : {0, 2, 4, 6, 12}) {
    SCOPED_TRACE(spare);
    FreshCloud();
    const std::string result = InChild([spare] {
      syslog(LOG_INFO, "the log has its descriptor");
      std::vector<int> taken;
      const std::size_t before = OpenDescriptors();
      const rlimit few = {before + 16, before + 16};  // whatever the caller of this test has left open
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
  EXPECT_LE(1, succeeded) << "twelve descriptors are enough";
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
              return Soak(400 * kTimes, [] {
                static _tag_libkivo_varn_request_ request = {};
                request.host = "https://account.kivo.example";
                request.path = "device/api/test";
                _tag_libkivo_varn_response_ response = {};
                const int result = VARNKIVOHttpsRequestSend(&request, &response);
                VARNKIVOHttpsResponseFree(&response);
                return result == 0;
              });
            }));
}

}  // namespace
