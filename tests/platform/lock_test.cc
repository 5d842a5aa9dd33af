// The file lock: one attempt, never creates, ends with its holder.
#include <signal.h>

#include <gtest/gtest.h>

#include "test_files.h"

namespace {

class FileLock : public testing::Test {
 protected:
  FileLock() { Spill(path_, "", 0666); }
  int Lock(int exclusive = 1) {
    handle_ = 99;
    return VLIBCFileLockByFile(path_.c_str(), exclusive, &handle_);
  }
  int Unlock() { return VLIBCFileUnlockByFile(handle_); }
  TempDir dir_;
  std::string path_ = dir_ / "lock";
  int handle_ = -1;
};

TEST_F(FileLock, ExcludesInsideOneProcessAndCreatesNothing) {
  ASSERT_EQ(0, Lock());
  const int held = handle_;
  for (const int exclusive : {0, 1}) {
    EXPECT_GT(0, Lock(exclusive));
    EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_LOCK_HELD), VLIBCErrGet());
    EXPECT_GT(0, Unlock()) << "without a handle there is nothing to unlock";
  }
  EXPECT_EQ(0, VLIBCFileUnlockByFile(held));
  unlink(path_.c_str());
  EXPECT_GT(0, Lock());
  EXPECT_EQ("", ModeAndOwner(path_));
  ASSERT_EQ(0, symlink("/etc/passwd", path_.c_str()));
  EXPECT_GT(0, Lock());
}

TEST_F(FileLock, IsFreeWhenItsHolderWasKilledThoughAProgramItStartedLives) {
  int ready[2];
  ASSERT_EQ(0, pipe(ready));
  const pid_t holder = InChild([&] {
    if (Lock() != 0) return 1;
    if (system("setsid sleep 60 </dev/null >/dev/null 2>&1 &") != 0 || write(ready[1], "x", 1) != 1) return 2;
    return pause();
  });
  char byte;
  ASSERT_EQ(1, read(ready[0], &byte, 1));
  EXPECT_GT(0, Lock());
  kill(holder, SIGKILL);
  EXPECT_EQ(-SIGKILL, Await(holder));
  EXPECT_EQ(0, Lock());
  const pid_t child = InChild([] { return pause(); });  // which has a copy of the descriptor
  ASSERT_EQ(0, Unlock());
  EXPECT_EQ(0, Lock());
  EXPECT_EQ(0, Unlock());
  kill(child, SIGKILL);
  Await(child);
}

}  // namespace
