// Plug-ins: which files are run, in which order, with what, for how long.
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <time.h>

#include <gtest/gtest.h>

#include "test_files.h"

namespace {

bool gHurried = false;  // the clock goes a minute on with each look at it while the slow plug-in runs
time_t gAhead = 0;

/// The ids that the slow plug-in has written down: of the program it started and of itself.
std::pair<pid_t, pid_t> SlowIds() {
  std::pair<pid_t, pid_t> ids;
  std::ifstream("/tmp/slow.pids") >> ids.first >> ids.second;
  return ids;
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* now) {
  static const auto real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, now);
  if (gHurried && SlowIds().second != 0 && kill(SlowIds().second, 0) == 0) gAhead += 61;
  if (clock == CLOCK_MONOTONIC) now->tv_sec += gAhead;
  return result;
}

namespace {

const std::string kDirectory = "/usr/varn/lib/plugins/kivo/kivo/login/", kLog = "/tmp/plugin.log";

class Plugins : public testing::Test {
 protected:
  Plugins() {
    unlink(kLog.c_str());
    std::filesystem::remove_all(kDirectory);
    std::filesystem::create_directories(kDirectory);
  }
  static void Add(const std::string& name, const std::string& more = "", mode_t mode = 0755, uid_t owner = 0) {
    const std::string path = kDirectory + name;
    Spill(path, "#!/bin/sh\necho \"${0##*/} $VARN_PLUGIN_ACTION\" >>" + kLog + "\n" + more + "\n", mode);
    EXPECT_EQ(0, chown(path.c_str(), owner, owner));
  }
  static int Run(_tag_sdk_plugin_action_ action = VLIB_PLUGIN_ACTION_PRE) {
    VLIBPlugin* handle = nullptr;
    if (VLIBPluginSDKInit("kivo", "kivo/login", &handle) != 0) return -100;
    const int result = VLIBPluginAction(action, handle);
    VLIBPluginExit(handle);
    return result;
  }
};

TEST_F(Plugins, RunInNameOrderWhateverOneEndsWithAndBadNamesAreRefused) {
  EXPECT_EQ(0, Run()) << "there is none";
  for (const char* name : {"30-c", "10-a", "20-b"}) Add(name);
  EXPECT_EQ(0, Run());
  Add("20-b", "kill -9 $$");
  EXPECT_GT(0, Run(VLIB_PLUGIN_ACTION_POST));
  Add("20-b", "exit 9");
  EXPECT_GT(0, Run(VLIB_PLUGIN_ACTION_POST));
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_PLUGIN), VLIBCErrGet());
  EXPECT_EQ("10-a 4\n20-b 4\n30-c 4\n10-a 5\n20-b 5\n30-c 5\n10-a 5\n20-b 5\n30-c 5\n", Slurp(kLog));
  for (const char* event : {"", "/", "/a", "a/", "a//b", "..", "../kivo", "a/../b", "a/.b", ".", "a b", "a\nb", "%s"}) {
    VLIBPlugin* handle = nullptr;
    EXPECT_GT(0, VLIBPluginSDKInit("kivo", event, &handle)) << event;
    EXPECT_GT(0, VLIBPluginSDKInit(event, "kivo/login", &handle)) << event;
  }
}

TEST_F(Plugins, RunOnlyWhatIsTrustedWithoutSecretsAndDescriptors) {
  setenv("SECRET_TOKEN", "very secret", 1);
  const int open = fcntl(0, F_DUPFD, 44);
  Add("good", "env | grep -e VARN_PLUGIN_[EP] -e SECRET | sort >>" + kLog + "; ls -x /proc/self/fd >>" + kLog);
  Add("service", "", 0755, 934);
  Add("stranger", "", 0755, 1000);
  Add("writable", "", 0757);
  Add("README", "", 0644);
  Add(".hidden");
  EXPECT_EQ(0, symlink("good", (kDirectory + "link").c_str()));
  EXPECT_EQ(0, mkdir((kDirectory + "folder").c_str(), 0755) + mkfifo((kDirectory + "fifo").c_str(), 0755));
  EXPECT_EQ(0, Run());
  // What the service owns must not run as root; 3 is the listed directory itself.
  EXPECT_EQ("good 4\nVARN_PLUGIN_EVENT=kivo/login\nVARN_PLUGIN_PRODUCT=kivo\n0  1  2  3\n", Slurp(kLog));
  EXPECT_EQ(0, chmod(kDirectory.c_str(), 0777));
  EXPECT_EQ(-100, Run()) << "anybody could put one there";
  unsetenv("SECRET_TOKEN");
  close(open);
}

TEST_F(Plugins, ASlowOneIsEndedWithAllItStarted) {
  Add("10-slow", "sleep 300 & echo $! $$ >/tmp/slow.pids; wait");
  Add("20-next");
  EXPECT_EQ(0, Await(InChild([] {  // a clock of its own process: the test's own waits are not hurried
              gHurried = true;
              return Run() < 0 ? 0 : 1;
            })));
  EXPECT_EQ("10-slow 4\n20-next 4\n", Slurp(kLog));
  const auto [background, shell] = SlowIds();
  ASSERT_TRUE(background > 0 && shell > 0);
  for (int wait = 0; wait < 6000 && kill(background, 0) == 0; ++wait) usleep(10000);  // until its new parent reaps it
  EXPECT_NE(0, kill(background, 0));
  EXPECT_NE(0, kill(shell, 0));
}

}  // namespace
