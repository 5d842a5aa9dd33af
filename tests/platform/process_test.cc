// Programs the platform starts: their status, what they inherit and what not, pipes, threads.
#include <fcntl.h>
#include <signal.h>

#include <thread>

#include <gtest/gtest.h>

#include "test_files.h"

namespace {

char* const kEnd = nullptr;

int Shell(const std::string& script, int flags = 0) { return VLIBCExecl("/bin/sh", flags, "-c", script.c_str(), kEnd); }

std::string Output(FILE* pipe) {
  std::string text;
  for (int c; pipe && (c = fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  return text;
}

TEST(Execl, GivesTheStatusOrFails) {
  const struct {
    const char *program, *script;
    int result;
    unsigned error;
  } rows[] = {{"/bin/sh", "exit 0", 0, 0},
              {"/bin/sh", "exit 127", 127, 0},
              {"/bin/sh", "kill -9 $$", -1, VLIB_ERR_EXEC},
              {"/no/such/program", "", -1, VLIB_ERR_NOT_FOUND},
              {"/etc/passwd", "", -1, VLIB_ERR_ACCESS}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.result, VLIBCExecl(row.program, 0, "-c", row.script, kEnd)) << row.program << " " << row.script;
    EXPECT_TRUE(row.error == 0 || row.error == VLIBCErrGet()) << row.program;
  }
  EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "no child is left unreaped";
}

TEST(Execl, ChildStartsCleanWhateverTheCallerDid) {
  const int open = fcntl(0, F_DUPFD, 57);  // not close-on-exec
  sigset_t blocked, before, after;
  sigfillset(&blocked);
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  signal(SIGPIPE, SIG_IGN);
  EXPECT_EQ(0, Shell("test ! -e /proc/self/fd/57 && test \"$(ls /proc/self/fd | tr '\\n' ' ')\" = '0 1 2 3 '"));
  EXPECT_EQ(0, Shell("grep -q '^SigBlk:.0*$' /proc/self/status && grep -q '^SigIgn:.0*$' /proc/self/status"));
  pthread_sigmask(SIG_SETMASK, &before, &after);
  EXPECT_EQ(1, sigismember(&after, SIGTERM)) << "the caller's mask is as it was";
  signal(SIGPIPE, SIG_DFL);
  close(open);
}

TEST(Execl, RaisesItsIdsOnlyWhenAsked) {
  const auto ids = [](int flags, uid_t saved) {
    return Await(InChild([=] {
      if (setresgid(1000, 934, saved) != 0 || setresuid(1000, 934, saved) != 0) return 100;
      const int result = Shell("grep -q '^Uid:.0.0.0' /proc/$$/status && grep -q '^Gid:.0.0.0' /proc/$$/status", flags);
      return result < 0 ? static_cast<int>(VLIBCErrGet() & 0xff) : result;
    }));
  };
  EXPECT_EQ(0, ids(187, 0));
  EXPECT_EQ(1, ids(186, 0));
  EXPECT_EQ(VLIB_ERR_ACCESS & 0xff, ids(1, 934)) << "not possible without a saved 0: then it must not run";
}

TEST(Popen, PassesArgumentsAsTheyAreAndGivesTheStatusOrNull) {
  FILE* pipe = VLIBCPopen("/bin/echo", "r", "$HOME;", "`id`", "a  b", "", "*", kEnd);
  EXPECT_EQ("$HOME; `id` a  b  *\n", Output(pipe));
  EXPECT_EQ(0, VLIBCPclose(pipe));
  pipe = VLIBCPopen("/bin/sh", "w", "-c", "read word; exit $word", kEnd);
  fputs("3\n", pipe);
  EXPECT_EQ(3, VLIBCPclose(pipe));
  EXPECT_EQ(nullptr, VLIBCPopen("/no/such/program", "r", kEnd));
}

TEST(Processes, StartWithoutStandardDescriptorsAndFromManyThreadsAtOnce) {
  EXPECT_EQ(0, Await(InChild([] {
              for (const int fd : {0, 1, 2}) close(fd);
              FILE* pipe = VLIBCPopen("/bin/sh", "r", "-c", "echo out; echo err >&2 || :", kEnd);
              const bool read = Output(pipe) == "out\n";
              return VLIBCPclose(pipe) == 0 && read && Shell("exit 5") == 5 ? 0 : 1;
            })));
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([number] {
      const std::string text = std::to_string(number);
      for (int round = 0; round < 25; ++round) {
        FILE* pipe = VLIBCPopen("/bin/echo", "r", text.c_str(), kEnd);
        ASSERT_EQ(text + "\n", Output(pipe));
        ASSERT_EQ(0, VLIBCPclose(pipe));
        // A forked child starts programs too: nothing it needs may be held by a thread that it does not have.
        ASSERT_EQ(number, Await(InChild([&] { return Shell("exit " + text); })));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
