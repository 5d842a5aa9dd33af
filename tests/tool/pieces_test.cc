// Pieces of the tool asked directly: texts on their way out, the next run of the job, exit codes, work with a limit.
#include "text.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <fstream>

#include "apart.h"
#include "cron_schedule.h"
#include "exit_codes.h"
#include "failure.h"

namespace kivotool {
namespace {

TEST(Text, OnlyValidUtf8Remains) {
  const std::string bad = "\xEF\xBF\xBD", good = "plain \xC3\xBC \xE2\x82\xAC \xF0\x9F\x98\x80";
  const std::pair<std::string, std::string> texts[] = {{good, good},
                                                       {"\xE2\x82", bad + bad},            // cut short
                                                       {"\xC0\xAF", bad + bad},            // overlong
                                                       {"\xED\xA0\x80", bad + bad + bad},  // a surrogate
                                                       {"\xF4\x90\x80\x80", bad + bad + bad + bad}};
  for (const auto& [in, out] : texts) EXPECT_EQ(out, Utf8(in));
  EXPECT_EQ("'a;b $(c) '\\''d'\\'''", ShellWord("a;b $(c) 'd'"));
}

TEST(Apart, WorkThatTakesTooLongIsEndedWithAllThatItHasStarted) {
  EXPECT_EQ(std::string(100000, 'x'), RunApart([] { return std::string(100000, 'x'); }, [] {}, 30));
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  const auto hang = [&] {
    if (fork() == 0) pause();  // keeps its end of the pipe until it is ended
    pause();
    return std::string();
  };
  EXPECT_THROW(RunApart(
                   hang, [] { FAIL(); }, 1),
               TakesTooLong);
  close(ends[1]);
  pollfd ended = {ends[0], POLLIN, 0};
  EXPECT_EQ(1, poll(&ended, 1, 10000));
  close(ends[0]);
}

TEST(NextRun, FollowsTheRulesOfCron) {
  setenv("TZ", "Europe/Berlin", 1);
  tzset();
  const std::int64_t now = 1795269600;  // Saturday 2026-11-21 15:00:00 in Berlin
  const struct {
    const char* line;
    std::int64_t next;
  } lines[] = {{"0 15 * * * root x", now + 86400},    // not the minute that has begun
               {"17 11 * * 1-5 root x", 1795429020},  // Monday
               {"*/20 * * * * root x", now + 1200},  {"5,50 14,16 * * * root x", now + 3900},
               {"0 0 1 * 0 root x", 1795302000},                                // the 1st or any Sunday
               {"0 0 31 12 * root x", 1798671600},   {"0 0 30 2 * root x", 0},  // never
               {"~ 9~16 * * 1~5 root x", 0},         {"", 0}};
  for (const auto& line : lines) EXPECT_EQ(line.next, NextRun(line.line, now)) << line.line;
  unsetenv("TZ");
  tzset();
}

TEST(Busy, IsWhatWaitedForAsLongAsTheLibraryWaits) {
  std::ofstream("/tmp/held").flush();
  Situation locked{Situation::Doing::kPackageToken, "again", "Failed to lock file: /tmp/held [code=22]\n#0", "", 30};
  EXPECT_EQ(Retry::kYes, Explain(22, locked).retry);
  locked.seconds = 29;
  EXPECT_EQ("ls -ld /tmp/held", Explain(22, locked).run);
}

TEST(ExitCode, FollowsFromTheLibrarysCodeAndWhoAsked) {
  const std::pair<int, std::vector<int>> rows[] = {{1, {0, 1, 2, 19, 99}}, {3, {3, 22}}, {4, {14, 18, 25}},
                                                   {5, {4, 5, 15}},        {7, {6}},     {8, {8, 20, 26, 27, 28}}};
  for (const auto& [exit, codes] : rows) {
    for (const int code : codes) EXPECT_EQ(exit, ExitFromLibrary(code, "", Caller::kOther)) << code;
  }
  EXPECT_EQ(3, ExitFromLibrary(22, "no Failed to lock file", Caller::kOther));
  EXPECT_EQ(6, ExitFromLibrary(22, "Failed to lock file: /tmp/x [code=22]", Caller::kOther));
  EXPECT_EQ(6, ExitFromLibrary(0, "", Caller::kQuery));
  EXPECT_EQ(5, ExitFromLibrary(4, "", Caller::kQuery));
}

}  // namespace
}  // namespace kivotool
