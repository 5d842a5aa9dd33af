// Key/value files: what is read, what is written, and that no writer loses, tears or widens anything.
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>

#include <algorithm>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "test_files.h"

namespace {

std::string Get(const std::string& path, const char* key) {
  char value[2048];
  return VLIBCFileGetKeyValue(path.c_str(), key, value, sizeof value) < 0 ? "(fails)" : value;
}

int Set(const std::string& path, const std::string& key, const std::string& value, const char* format = "%s=\"%s\"\n") {
  return VLIBCFileSetKeyValue(path.c_str(), key.c_str(), value.c_str(), format);
}

TEST(KeyValueFile, ReadsWhatOthersWrote) {
  const struct {
    const char *content, *value;
  } rows[] = {{"language=enu\n", "enu"},
              {"language=\"enu\"\n", "enu"},
              {"language=\"enu\"", "enu"},
              {"language=\"enu\"\r\n", "enu"},
              {"language=enu  \r\n", "enu"},
              {"  language = \"e n u \"  # here\n", "e n u "},
              {"language=\"first\"\nlanguage=\"second\"\n", "first"},
              {"language=\"\"\nlanguage=\"second\"\n", ""},
              {"#language=\"no\"\nxlanguage=\"no\"\nlanguage2=\"no\"\nlanguage=\"yes\"\n", "yes"},
              {"\n\n=\"x\"\nlanguage\nlanguage=a=b\n", "a=b"},
              {"language=\"a\\\"b\\\\c\\$d\\`e\\nf\\rg\\th\\x1bi\"\n",
               "a\"b\\c$d`e\nf\rg\th\x1b"
               "i"},
              {"language=\"C:\\dir \\x00 \\xg1 \\\"\n", "C:\\dir \\x00 \\xg1 \""},
              {"language=\"open\n", "open"},
              {"", ""}};
  TempDir dir;
  const std::string path = dir / "conf";
  for (const auto& row : rows) {
    SCOPED_TRACE(row.content);
    Spill(path, row.content);
    EXPECT_EQ(row.value, Get(path, "language"));
  }
}

TEST(KeyValueFile, CutsAndCounts) {
  TempDir dir;
  const std::string path = dir / "conf";
  Set(path, "key", "12345");
  char value[8];
  const struct {
    int size, result;
    const char* text;
  } rows[] = {{8, 5, "12345"}, {6, 5, "12345"}, {5, 4, "1234"}, {1, 0, ""}, {0, -1, nullptr}, {-1, -1, nullptr}};
  for (const auto& row : rows) {
    std::fill(std::begin(value), std::end(value), 'z');
    EXPECT_EQ(row.result, VLIBCFileGetKeyValue(path.c_str(), "key", value, row.size));
    if (row.text) {
      EXPECT_STREQ(row.text, value);
    }
    if (!row.text) {
      EXPECT_EQ('z', value[0]);
    }
    if (row.size < 8) {
      EXPECT_EQ('z', value[7]);
    }
  }
  EXPECT_EQ(0, VLIBCFileGetKeyValue(path.c_str(), "absent", value, sizeof value));
  EXPECT_GT(0, VLIBCFileGetKeyValue(dir.Path().c_str(), "key", value, sizeof value));
}

TEST(KeyValueFile, ChecksTheWholeValue) {
  TempDir dir;
  const std::string path = dir / "conf";
  Spill(path, "kivo_disable_report=yes\nempty=\"\"\n");
  const auto check = [&](const char* key, const char* value) {
    return VLIBCFileCheckKeyValue(path.c_str(), key, value);
  };
  EXPECT_EQ(1, check("kivo_disable_report", "yes"));
  for (const char* other : {"ye", "yes ", "Yes", ""}) EXPECT_EQ(0, check("kivo_disable_report", other));
  EXPECT_EQ(1, check("empty", ""));
  EXPECT_EQ(0, check("absent", ""));
  EXPECT_GT(0, VLIBCFileCheckKeyValue((dir / "none").c_str(), "empty", ""));
}

TEST(KeyValueFile, GivesEveryPairOnceInOrder) {
  TempDir dir;
  Spill(dir / "conf", "b=\"1\\\"\"\n# no=1\na=2\nb=3\n");
  VLIBSzHash* hash = VLIBCSzHashAlloc(4);
  EXPECT_EQ(2, VLIBCFileGetKeys((dir / "conf").c_str(), hash, "="));
  EXPECT_STREQ("1\"", VLIBCSzHashGetValue(hash, "b"));
  EXPECT_STREQ("2", VLIBCSzHashGetValue(hash, "a"));
  Spill(dir / "conf", "b: x=y\n");
  EXPECT_EQ(1, VLIBCFileGetKeys((dir / "conf").c_str(), hash, ":"));
  EXPECT_STREQ("x=y", VLIBCSzHashGetValue(hash, "b"));
  EXPECT_GT(0, VLIBCFileGetKeys((dir / "none").c_str(), hash, "="));
  VLIBCSzHashFree(hash);
}

TEST(KeyValueFile, WritingKeepsEveryOtherByte) {
  const struct {
    const char *before, *after;
  } rows[] = {{"", "key=\"new\"\n"},
              {"# top\n\nother = 'x'\n", "# top\n\nother = 'x'\nkey=\"new\"\n"},
              {"no newline", "no newline\nkey=\"new\"\n"},
              {"a=1\nkey=old\n#key=c\nkey=\"dup\"\nz=2", "a=1\nkey=\"new\"\n#key=c\nkey=\"dup\"\nz=2"},
              {"key=\"old", "key=\"new\"\n"}};
  TempDir dir;
  const std::string path = dir / "conf";
  for (const auto& row : rows) {
    Spill(path, row.before);
    ASSERT_EQ(0, Set(path, "key", "new"));
    EXPECT_EQ(row.after, Slurp(path));
  }
  Spill(path, "");
  Set(path, "mail", "ann.o'neil+x@kivo.example; 100% #1 \xc3\xa4");
  EXPECT_EQ("mail=\"ann.o'neil+x@kivo.example; 100% #1 \xc3\xa4\"\n", Slurp(path))
      << "ordinary values stay as they are";
}

TEST(KeyValueFile, RefusesFormatsAndKeysThatWouldNotReadBack) {
  TempDir dir;
  const std::string path = dir / "conf";
  for (const char* format : {"", "%s=\"%s\"", "%s", "%s=%s=%s\n", "%s=%d\n", "%s=%n\n", "%1$s=%s\n", "%s=\"%s\"\nx=1\n",
                             "%s:%s\n", "#%s=%s\n", "%s=\"%s\"%\n", "\n%s=%s"}) {
    EXPECT_GT(0, Set(path, "key", "value", format)) << format;
  }
  for (const char* key : {"", "a b", "a=b", "a\nb", "#a", "a\"", "$a"}) EXPECT_GT(0, Set(path, key, "value")) << key;
  EXPECT_EQ("", ModeAndOwner(path));
  EXPECT_EQ(0, Set(path, "key", " both ends ", "%s=%s\n"));
  EXPECT_EQ(" both ends ", Get(path, "key"));
  EXPECT_EQ(0, Set(path, "key", "\"q\"", nullptr));
  EXPECT_EQ("\"q\"", Get(path, "key"));
}

TEST(KeyValueFile, EveryValueReadsBackAndAddsNoLine) {
  TempDir dir;
  const std::string path = dir / "conf";
  Set(path, "account_host", "https://account.kivo.example");
  Set(path, "full_name", "x");
  Set(path, "last", "1");
  const std::string alphabet = "\"\\$`\n\r\t\x01\x1b\x7f =#'%nrtx041\xc3\xa4\xff";
  std::mt19937 random(20261121);
  for (int round = 0; round < 20000; ++round) {
    std::string value;
    for (std::size_t left = random() % 24; left > 0; --left) {
      value += random() % 4 ? alphabet[random() % alphabet.size()] : static_cast<char>(random() % 255 + 1);
    }
    ASSERT_EQ(0, Set(path, "full_name", value, random() % 2 ? "%s=\"%s\"\n" : "%s=%s\n"));
    ASSERT_EQ(value, Get(path, "full_name"));
    const std::string content = Slurp(path);
    ASSERT_EQ(3, std::count_if(content.begin(), content.end(), [](char c) { return (c >= 0 && c < ' ') || c == 127; }))
        << "three newlines and no other control character in " << content;
  }
  Set(path, "full_name", "x\"\naccount_host=\"https://evil");
  EXPECT_EQ("https://account.kivo.example", Get(path, "account_host"));
  EXPECT_EQ(0, VLIBCExecl("/bin/sh", 0, "-c", ". \"$1\"; test \"$last\" = 1 && test ! -e /tmp/pwned", "sh",
                          path.c_str(), static_cast<char*>(nullptr)));
  Set(path, "full_name", "$(touch /tmp/pwned)`touch /tmp/pwned`");
  EXPECT_EQ(0, VLIBCExecl("/bin/sh", 0, "-c", ". \"$1\"; test ! -e /tmp/pwned", "sh", path.c_str(),
                          static_cast<char*>(nullptr)));
}

TEST(KeyValueFile, KeepsModeAndOwnerAndStartsPrivate) {
  for (const mode_t mask : {0000u, 0022u, 0777u}) {
    TempDir dir;
    const std::string path = dir / "conf";
    const mode_t before = umask(mask);
    EXPECT_EQ(0, Set(path, "key", "1"));
    EXPECT_EQ("600 0:0", ModeAndOwner(path));
    EXPECT_EQ(0, chmod(path.c_str(), 0640) + chown(path.c_str(), 934, 12));
    EXPECT_EQ(0, Set(path, "key", "2"));
    EXPECT_EQ("640 934:12", ModeAndOwner(path));
    EXPECT_EQ("2", Get(path, "key"));
    umask(before);
  }
}

TEST(KeyValueFile, NobodyEverSeesAnotherMode) {
  TempDir dir;
  const std::string path = dir / "conf";
  umask(0);
  Set(path, "key", "0");
  const pid_t watcher = InChild([&] {  // everything in the directory, temporary and lock files too
    DIR* open = opendir(dir.Path().c_str());
    for (;; rewinddir(open)) {
      while (const dirent* entry = readdir(open)) {
        struct stat status {};
        if (entry->d_name == std::string("stop")) return 0;
        if (fstatat(dirfd(open), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(status.st_mode))
          continue;
        if ((status.st_mode & 07777) != 0600) return 1;
      }
    }
  });
  for (int i = 1; i <= 5000; ++i) Set(path, "key", std::to_string(i));
  Spill(dir / "stop", "");
  EXPECT_EQ(0, Await(watcher));
  umask(022);
}

TEST(KeyValueFile, FollowsNoLinkWhenItWrites) {
  TempDir dir;
  const std::string target = dir / "target", path = dir / "conf", lock = dir / ".conf.lock";
  Spill(target, "key=old\n");
  ASSERT_EQ(0, symlink(target.c_str(), path.c_str()));
  EXPECT_EQ("old", Get(path, "key")) << "reading through a link is fine";
  EXPECT_GT(0, Set(path, "key", "new"));
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NOT_REGULAR), VLIBCErrGet());
  unlink(path.c_str());
  unlink(lock.c_str());
  ASSERT_EQ(0, symlink(target.c_str(), lock.c_str()));
  EXPECT_GT(0, Set(path, "key", "new"));
  unlink(lock.c_str());
  ASSERT_EQ(0, symlink(target.c_str(), (dir / ".conf.new").c_str()));
  EXPECT_EQ(0, Set(path, "key", "new")) << "a left-over is replaced";
  EXPECT_EQ("key=old\n", Slurp(target));
  ASSERT_EQ(0, unlink(path.c_str()) + mkfifo(path.c_str(), 0600));
  EXPECT_EQ("(fails)", Get(path, "key")) << "and does not hang";
  EXPECT_GT(0, Set(path, "key", "new"));
}

TEST(KeyValueFile, SixteenWritersOfTwoUsersLoseNothing) {
  constexpr int kWriters = 16, kReaders = 4, kRounds = 100;
  TempDir dir;
  ASSERT_EQ(0, chown(dir.Path().c_str(), 934, 934));
  const std::string path = dir / "user.conf";
  ASSERT_EQ(0, Set(path, "first", "by root") + chown(path.c_str(), 934, 934));
  std::vector<pid_t> children;
  for (int writer = 0; writer < kWriters; ++writer) {
    children.push_back(InChild([&] {
      if (writer % 2 == 0 && !BecomeAccountService()) return 1;
      const std::string key = "key" + std::to_string(writer);
      for (int round = 1; round <= kRounds; ++round) {
        if (Set(path, key, std::to_string(round)) != 0) return 2;
        if (Get(path, key.c_str()) != std::to_string(round)) return 3;
      }
      return 0;
    }));
  }
  for (int reader = 0; reader < kReaders; ++reader) {
    children.push_back(InChild([&] {
      std::size_t most = 0;
      for (int look = 0; look < 3000; ++look) {
        const std::string content = Slurp(path);
        if (content.empty() || content.back() != '\n') return 1;  // torn
        const auto lines = static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n'));
        if (lines < most) return 2;  // a key went missing
        most = lines;
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(0, Await(child));
  for (int writer = 0; writer < kWriters; ++writer) {
    EXPECT_EQ(std::to_string(kRounds), Get(path, ("key" + std::to_string(writer)).c_str()));
  }
  EXPECT_EQ("600 934:934", ModeAndOwner(dir / ".user.conf.lock"));
}

TEST(KeyValueFile, AKilledWriterLeavesAWholeFileAndNoLock) {
  TempDir dir;
  const std::string path = dir / "conf", filler(30000, 'f');
  Set(path, "filler", filler);
  Set(path, "key", "0");
  std::mt19937 random(3);
  for (int round = 0; round < 60; ++round) {
    const pid_t writer = InChild([&] {
      for (int i = 0;; ++i) Set(path, "key", std::to_string(i));
      return 0;
    });
    usleep(static_cast<useconds_t>(random() % 3000));
    kill(writer, SIGKILL);
    Await(writer);
    const std::string content = Slurp(path);
    ASSERT_EQ("filler=\"" + filler + "\"\nkey=\"" + Get(path, "key") + "\"\n", content);
    ASSERT_EQ(0, Set(path, "key", "after"));
  }
  EXPECT_EQ("", ModeAndOwner(dir / ".conf.new"));
}

}  // namespace
