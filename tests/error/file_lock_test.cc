// The lock between processes, against what may stand at its path and against other holders.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/file_lock.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>

#include "fake_platform.h"

using namespace testsupport;
using varnkivo::FileLock;

namespace {

constexpr char kPath[] = "/tmp/account_test.lock";
constexpr char kTarget[] = "/tmp/account_target";

auto Descriptors() { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); }

TEST(FileLock, WhatIsNoPlainFileIsRefusedAtOnceAndLeftAlone) {
  const struct {
    std::string path;
    std::function<int()> plant;
  } cases[] = {{"/tmp/account_none/x.lock", [] { return 0; }},
               {"", [] { return 0; }},
               {kPath, [] { return symlink(kTarget, kPath); }},
               {kPath, [] { return WriteFile(kTarget, "x"), symlink(kTarget, kPath); }},
               {kPath, [] { return mkdir(kPath, 0777); }},
               {kPath, [] { return mkfifo(kPath, 0666); }}};
  for (const auto& row : cases) {
    SCOPED_TRACE(&row - cases);
    FakePlatform device;
    ASSERT_EQ(0, row.plant());
    const std::string before = ModeAndOwner(kTarget) + ReadFile(kTarget);
    const auto descriptors = Descriptors();
    EXPECT_FALSE(FileLock(row.path).Lock(30));
    EXPECT_EQ("file_lock Failed to open file: " + row.path, device.LastLine());
    EXPECT_THAT(device.Calls("VLIBCFileLockByFile"), testing::IsEmpty());
    EXPECT_EQ(before, ModeAndOwner(kTarget) + ReadFile(kTarget));
    EXPECT_EQ(descriptors, Descriptors());
  }
}

TEST(FileLock, WaitsInRandomStepsUntilTheDeadlineWhileAnotherProcessHoldsItAndTakesItWhenThatDies) {
  FakePlatform device;
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const mode_t before = umask(077);
  const pid_t holder = fork();
  if (holder == 0) {
    FileLock held(kPath);
    // What it starts lives on, and must not have the lock.
    const char done = held.Lock(1) && system("setsid sleep 60 </dev/null >/dev/null 2>&1 &") == 0 ? 'y' : 'n';
    if (write(ready[1], &done, 1) == 1) pause();
    _exit(0);
  }
  char done = 0;
  ASSERT_EQ(1, read(ready[0], &done, 1));
  ASSERT_EQ('y', done);
  EXPECT_EQ("0666 0:0", ModeAndOwner(kPath)) << "for every user";
  FileLock lock(kPath);
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_FALSE(lock.Lock(1));
  auto waited = std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - begun);
  std::set<long> pauses;
  for (const std::string& call : device.Calls("usleep(")) {
    pauses.insert(std::stol(call.substr(7)));
    waited += std::chrono::microseconds(std::stol(call.substr(7)));
  }
  EXPECT_GE(waited.count(), 1000000);
  EXPECT_LE(device.Calls("usleep(").size(), 20u);
  EXPECT_TRUE(*pauses.begin() >= 50000 && *pauses.rbegin() <= 100000);
  EXPECT_GT(pauses.size(), device.Calls("usleep(").size() / 2) << "the pauses are all alike";

  kill(holder, SIGKILL);
  ASSERT_EQ(holder, waitpid(holder, nullptr, 0));
  device.ForgetCalls();
  EXPECT_TRUE(lock.Lock(1));
  EXPECT_EQ(1u, device.Calls("VLIBCFileLockByFile").size());
  EXPECT_EQ(077u, umask(before));
  EXPECT_THAT(device.Lines(), testing::IsEmpty());
}

TEST(FileLock, OneObjectExcludesAnotherUntilItIsReleased) {
  FakePlatform device;
  FileLock other(kPath), lock(kPath);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(lock.Lock(1)) << "locking again drops the lock and takes it anew";
  EXPECT_FALSE(other.Lock(1));
  for (int i = 0; i < 2; ++i) lock.Unlock();
  EXPECT_TRUE(other.Lock(1));
  EXPECT_FALSE(FileLock(kPath, true).Lock(1));
  other.Unlock();
  FileLock first(kPath, true), second(kPath, true);
  EXPECT_TRUE(first.Lock(1) && second.Lock(1));
  EXPECT_FALSE(other.Lock(1));
}

}  // namespace
