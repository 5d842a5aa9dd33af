// Plug-ins: which files are run, in which order, with what, for how long.
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>

#include <atomic>

#include <gtest/gtest.h>

#include "test_files.h"

namespace {
std::atomic<time_t> gAhead{0};  // seconds the clock is ahead
}

extern "C" int clock_gettime(clockid_t clock, timespec* now) {
  static const auto real = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, now);
  if (clock == CLOCK_MONOTONIC) now->tv_sec += gAhead;
  return result;
}

namespace {

const std::string kDirectory = "/usr/varn/lib/plugins/kivo/kivo/login/";
const std::string kLog = "/tmp/plugin.log";

class Plugins : public testing::Test {
 protected:
  Plugins() {
    VLIBCExecl("/bin/rm", 0, "-rf", "/usr/varn/lib/plugins/kivo", kLog.c_str(), static_cast<char*>(nullptr));
    VLIBCExecl("/bin/mkdir", 0, "-p", kDirectory.c_str(), static_cast<char*>(nullptr));
  }
  static void Add(const std::string& name, const std::string& more = "", mode_t mode = 0755) {
    Spill(kDirectory + name, "#!/bin/sh\necho \"${0##*/} $VARN_PLUGIN_ACTION\" >>" + kLog + "\n" + more + "\n", mode);
  }
  static int Run(_tag_sdk_plugin_action_ action) {
    VLIBPlugin* handle = nullptr;
    if (VLIBPluginSDKInit("kivo", "kivo/login", &handle) != 0) return -100;
    const int result = VLIBPluginAction(action, handle);
    VLIBPluginExit(handle);
    return result;
  }
};

TEST_F(Plugins, RunInNameOrderAndAFailingOneStopsNoOther) {
  for (const char* name : {"30-c", "10-a", "20-b"}) Add(name);
  EXPECT_EQ(0, Run(VLIB_PLUGIN_ACTION_PRE));
  Add("20-b", "exit 9");
  EXPECT_GT(0, Run(VLIB_PLUGIN_ACTION_POST));
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_PLUGIN), VLIBCErrGet());
  EXPECT_EQ("10-a 4\n20-b 4\n30-c 4\n10-a 5\n20-b 5\n30-c 5\n", Slurp(kLog));
  Add("20-b", "kill -9 $$");
  EXPECT_GT(0, Run(VLIB_PLUGIN_ACTION_POST));
  EXPECT_GT(0, Run(static_cast<_tag_sdk_plugin_action_>(6)));
}

TEST_F(Plugins, RunOnlyWhatIsTrusted) {
  Add("good");
  Add("service");
  EXPECT_EQ(0, chown((kDirectory + "service").c_str(), 934, 934));
  Add("writable", "", 0757);
  Add("stranger");
  EXPECT_EQ(0, chown((kDirectory + "stranger").c_str(), 1000, 1000));
  Add("README", "", 0644);
  Add(".hidden");
  EXPECT_EQ(0, symlink("good", (kDirectory + "link").c_str()));
  EXPECT_EQ(0, mkdir((kDirectory + "folder").c_str(), 0755));
  EXPECT_EQ(0, mkfifo((kDirectory + "fifo").c_str(), 0755));
  EXPECT_EQ(0, Run(VLIB_PLUGIN_ACTION_PRE));
  EXPECT_EQ("good 4\n", Slurp(kLog)) << "what the service owns must not run as root";
  EXPECT_EQ(0, chmod(kDirectory.c_str(), 0777));
  EXPECT_EQ(-100, Run(VLIB_PLUGIN_ACTION_PRE)) << "anybody could put one there";
}

TEST_F(Plugins, NoneIsSuccessAndABadNameIsNot) {
  EXPECT_EQ(0, Run(VLIB_PLUGIN_ACTION_PRE));
  VLIBPlugin* handle = nullptr;
  EXPECT_EQ(0, VLIBPluginSDKInit("kivo", "kivo/never", &handle, 0));
  EXPECT_EQ(0, VLIBPluginAction(VLIB_PLUGIN_ACTION_POST, handle));
  EXPECT_EQ(0, VLIBPluginExit(handle));
  EXPECT_EQ(0, VLIBPluginExit(nullptr));
  for (const char* event : {"", "/", "/a", "a/", "a//b", "..", "../kivo", "a/../b", "a/.b", ".", "a b", "a\nb", "%s"}) {
    handle = reinterpret_cast<VLIBPlugin*>(1);
    EXPECT_GT(0, VLIBPluginSDKInit("kivo", event, &handle)) << event;
    EXPECT_EQ(nullptr, handle);
    EXPECT_GT(0, VLIBPluginSDKInit(event, "kivo/login", &handle)) << event;
  }
  EXPECT_GT(0, VLIBPluginAction(VLIB_PLUGIN_ACTION_PRE, nullptr));
}

TEST_F(Plugins, InheritNoSecretAndNoDescriptor) {
  setenv("SECRET_TOKEN", "very secret", 1);
  const int open = fcntl(0, F_DUPFD, 44);
  Add("a", "env >>" + kLog + "; ls /proc/self/fd | tr '\\n' ' ' >>" + kLog);
  EXPECT_EQ(0, Run(VLIB_PLUGIN_ACTION_POST));
  const std::string log = Slurp(kLog);
  EXPECT_NE(std::string::npos, log.find("VARN_PLUGIN_PRODUCT=kivo\n"));
  EXPECT_NE(std::string::npos, log.find("VARN_PLUGIN_EVENT=kivo/login\n"));
  EXPECT_EQ(std::string::npos, log.find("secret"));
  EXPECT_NE(std::string::npos, log.find("0 1 2 3 ")) << log;  // 3 is the listed directory itself
  unsetenv("SECRET_TOKEN");
  close(open);
}

TEST_F(Plugins, ASlowOneIsEndedWithAllItStarted) {
  Add("10-slow", "sleep 300 & echo $! $$ >/tmp/slow.pids; wait");
  Add("20-next");
  const pid_t clock = InChild([] {  // a clock of its own process: the test's own waits are not hurried
    VLIBPlugin* handle = nullptr;
    if (VLIBPluginSDKInit("kivo", "kivo/login", &handle) != 0) return 1;
    Spill("/tmp/slow.pids", "");
    const pid_t starter = VLIBCProcFork();
    if (starter == 0) {
      while (Slurp("/tmp/slow.pids").find('\n') == std::string::npos) usleep(1000);
      kill(getppid(), SIGUSR1);  // the plug-in runs: its minute is over
      _exit(0);
    }
    signal(SIGUSR1, [](int) { gAhead = 61; });
    const int result = VLIBPluginAction(VLIB_PLUGIN_ACTION_PRE, handle);
    return result < 0 ? 0 : 2;
  });
  EXPECT_EQ(0, Await(clock));
  EXPECT_EQ("10-slow 4\n20-next 4\n", Slurp(kLog));
  const std::string pids = Slurp("/tmp/slow.pids");
  pid_t background = 0, shell = 0;
  ASSERT_EQ(2, sscanf(pids.c_str(), "%d %d", &background, &shell)) << pids;
  for (int wait = 0; wait < 500 && kill(background, 0) == 0; ++wait) usleep(10000);  // until its new parent reaps it
  EXPECT_NE(0, kill(background, 0));
  EXPECT_NE(0, kill(shell, 0));
}

TEST_F(Plugins, ADaemonThatStaysHoldsNeitherTheCallNorItsPipes) {
  Add("daemon", "setsid sleep 300 &");
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const pid_t caller = InChild([&] {
    dup2(ends[1], 1);
    dup2(ends[1], 2);
    return Run(VLIB_PLUGIN_ACTION_PRE);
  });
  EXPECT_EQ(0, Await(caller));
  close(ends[1]);
  pollfd end = {ends[0], POLLIN, 0};
  EXPECT_EQ(1, poll(&end, 1, 2000));
  char text[4096];
  const ssize_t got = read(ends[0], text, sizeof text);
  EXPECT_EQ(0, got) << "the caller's output is not at its end but has "
                    << std::string(text, got > 0 ? static_cast<std::size_t>(got) : 0);
  close(ends[0]);
}

}  // namespace
