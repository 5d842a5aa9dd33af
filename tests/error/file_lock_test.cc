// The lock between processes, against what may stand at its path and against other holders.
#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <varnkivo/file_lock.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <set>

#include "fake_platform.h"
#include "fake_state.h"

using namespace testsupport;
using varnkivo::FileLock;

namespace {

constexpr int kCreate = 0100;  // O_CREAT; <fcntl.h> would bring its own body of open()
constexpr char kPath[] = "/tmp/account_test.lock";
constexpr char kTarget[] = "/tmp/account_target";
std::atomic<bool> gProtectForeignFiles{false};

}  // namespace

/// A kernel that protects files of others in sticky folders: O_CREAT on one that exists is refused even to root.
extern "C" int FakeOpen(const char* path, int flags, ...) __asm__("open");
int FakeOpen(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = flags & kCreate ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  if (gProtectForeignFiles && (flags & kCreate) && access(path, F_OK) == 0) {
    errno = EACCES;
    return -1;
  }
  return Next<int(const char*, int, ...)>("open")(path, flags, mode);
}

namespace {

int OpenDescriptors() {
  int count = 0;
  DIR* const folder = opendir("/proc/self/fd");
  while (readdir(folder)) ++count;
  closedir(folder);
  return count;
}

TEST(FileLock, WhatIsNoPlainFileIsRefusedAtOnceAndLeftAlone) {
  const struct {
    const char* what;
    std::function<void()> plant;
    const char* path = kPath;
  } cases[] = {
      {"missing folder", [] {}, "/tmp/account_none/x.lock"},
      {"empty path", [] {}, ""},
      {"dangling link", [] { ASSERT_EQ(0, symlink(kTarget, kPath)); }},
      {"link to a file",
       [] {
         FakePlatform::Write(kTarget, "x");
         ASSERT_EQ(0, symlink(kTarget, kPath));
       }},
      {"folder", [] { ASSERT_EQ(0, mkdir(kPath, 0777)); }},
      {"fifo", [] { ASSERT_EQ(0, mkfifo(kPath, 0666)); }},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.what);
    FakePlatform device;
    row.plant();
    const std::string before = FakePlatform::Read(kTarget);
    const bool existed = access(kTarget, F_OK) == 0;
    const int descriptors = OpenDescriptors();
    EXPECT_FALSE(FileLock(row.path).Lock(30));
    EXPECT_EQ(std::string("Failed to open file: ") + row.path, device.LastLog());
    EXPECT_EQ("file_lock", device.LastLogSource());
    EXPECT_EQ(1u, device.Lines().size());
    EXPECT_THAT(device.Calls("VLIBCFileLockByFile"), testing::IsEmpty());
    EXPECT_EQ(existed, access(kTarget, F_OK) == 0);
    EXPECT_EQ(before, FakePlatform::Read(kTarget));
    EXPECT_EQ(descriptors, OpenDescriptors());
  }
}

TEST(FileLock, CreatesTheFileForEveryUserAndKeepsTheUmask) {
  FakePlatform device;
  const mode_t before = umask(077);
  const FileLock unlocked(kPath);
  FileLock lock(kPath);
  EXPECT_EQ(kPath, lock.GetPath());
  lock.Unlock();
  EXPECT_TRUE(lock.Lock(1));
  EXPECT_EQ(077u, umask(before));
  struct stat facts {};
  ASSERT_EQ(0, stat(kPath, &facts));
  EXPECT_EQ(static_cast<mode_t>(S_IFREG | 0666), facts.st_mode);
  EXPECT_EQ(std::vector<std::string>{std::string("VLIBCFileLockByFile(") + kPath + ",1,*)"},
            device.Calls("VLIBCFileLockByFile"));
}

TEST(FileLock, AForeignFileThatMayNotBeCreatedAgainIsStillLocked) {
  FakePlatform device;
  FakePlatform::Write(kPath, "");
  ASSERT_EQ(0, chown(kPath, 1000, 1000));
  ASSERT_EQ(0, chmod(kPath, 0666));
  gProtectForeignFiles = true;
  EXPECT_TRUE(FileLock(kPath).Lock(1));
  ASSERT_EQ(0, unlink(kPath));
  EXPECT_TRUE(FileLock(kPath).Lock(1)) << "an absent file is made";
  gProtectForeignFiles = false;
  EXPECT_THAT(device.Lines(), testing::IsEmpty());
}

TEST(FileLock, ZeroSecondsMakeNoAttempt) {
  FakePlatform device;
  EXPECT_FALSE(FileLock(kPath).Lock(0));
  EXPECT_THAT(device.Calls("VLIBCFileLockByFile"), testing::IsEmpty());
  EXPECT_THAT(device.Lines(), testing::IsEmpty());
}

TEST(FileLock, WaitsInRandomStepsUntilTheDeadlineWhileAnotherProcessHoldsItAndTakesItWhenThatDies) {
  FakePlatform device;
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t holder = fork();
  if (holder == 0) {
    FileLock held(kPath);
    const char done = held.Lock(1) ? 'y' : 'n';
    if (write(ready[1], &done, 1) == 1) pause();
    _exit(0);
  }
  char done = 0;
  ASSERT_EQ(1, read(ready[0], &done, 1));
  ASSERT_EQ('y', done);

  FileLock lock(kPath);
  EXPECT_FALSE(lock.Lock(1));
  const auto attempts = device.Calls("VLIBCFileLockByFile").size();
  EXPECT_GE(attempts, 10u);
  EXPECT_LE(attempts, 20u);
  std::set<long> pauses;
  for (const std::string& call : device.Calls("usleep(")) pauses.insert(std::stol(call.substr(7)));
  EXPECT_GE(*pauses.begin(), 50000);
  EXPECT_LE(*pauses.rbegin(), 100000);
  EXPECT_GT(pauses.size(), attempts / 2) << "the pauses are all alike";
  EXPECT_THAT(device.Lines(), testing::IsEmpty());

  kill(holder, SIGKILL);
  ASSERT_EQ(holder, waitpid(holder, nullptr, 0));
  device.ForgetCalls();
  EXPECT_TRUE(lock.Lock(1));
  EXPECT_EQ(1u, device.Calls("VLIBCFileLockByFile").size());
  close(ready[0]);
  close(ready[1]);
}

TEST(FileLock, OneObjectExcludesAnotherUntilItIsReleased) {
  FakePlatform device;
  FileLock other(kPath);
  {
    FileLock lock(kPath);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(lock.Lock(1)) << "locking again drops the lock and takes it anew";
    EXPECT_FALSE(other.Lock(1));
    lock.Unlock();
    lock.Unlock();
    EXPECT_TRUE(other.Lock(1));
    other.Unlock();
    EXPECT_TRUE(lock.Lock(1));
  }
  EXPECT_TRUE(other.Lock(1));
  FileLock first(kPath, true), second(kPath, true);
  other.Unlock();
  EXPECT_TRUE(first.Lock(1));
  EXPECT_TRUE(second.Lock(1));
  EXPECT_FALSE(other.Lock(1));
}

}  // namespace
