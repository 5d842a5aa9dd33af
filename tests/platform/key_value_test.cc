// Key/value files: what is read, what is written, and that no writer loses or tears anything.
#include <algorithm>

#include <gtest/gtest.h>

#include "test_files.h"

namespace {

class KeyValueFile : public testing::Test {
 protected:
  KeyValueFile() { std::filesystem::remove_all(dir), std::filesystem::create_directory(dir); }
  std::string Get(const char* key = "key") const {
    char value[2048];
    return VLIBCFileGetKeyValue(path.c_str(), key, value, sizeof value) < 0 ? "(fails)" : value;
  }
  int Set(const std::string& key, const std::string& value, const char* format = "%s=\"%s\"\n") const {
    return VLIBCFileSetKeyValue(path.c_str(), key.c_str(), value.c_str(), format);
  }
  const std::string dir = "/tmp/key_value/", path = dir + "conf";
};

TEST_F(KeyValueFile, ReadsWhatOthersWrote) {
  const struct {
    const char *content, *value;
  } rows[] = {{"key=enu\n", "enu"},
              {"key=enu  \r\n", "enu"},
              {"  key = \"e n u \"  # here\n", "e n u "},
              {"#key=\"no\"\nxkey=\"no\"\nkey2=\"no\"\nkey=\"yes\"\n", "yes"},
              {"\n\n=\"x\"\nkey\nkey=a=b\n", "a=b"},
              {"key=\"a\\\"b\\\\c\\$d\\`e\\nf\\rg\\th\\x1bi\"\n", "a\"b\\c$d`e\nf\rg\th\033i"},
              {"key=\"C:\\dir \\x00 \\xg1 \\\"\n", "C:\\dir \\x00 \\xg1 \""},
              {"key=\"open\n", "open"},
              {"", ""}};
  for (const auto& row : rows) {
    Spill(path, row.content);
    EXPECT_EQ(row.value, Get()) << row.content;
  }
}

TEST_F(KeyValueFile, CutsToTheBufferAndChecksWholeValues) {
  Spill(path, "key=\"1234\\\"\"\n# no=1\nempty=\"\"\nkey=3\n");
  const struct {
    int size, result;
    const char* text;
  } rows[] = {{6, 5, "1234\""}, {5, 4, "1234"}, {1, 0, ""}, {0, -1, "zzzzzz"}, {-1, -1, "zzzzzz"}};
  for (const auto& row : rows) {
    char value[8] = "zzzzzz";
    EXPECT_EQ(row.result, VLIBCFileGetKeyValue(path.c_str(), "key", value, row.size));
    EXPECT_STREQ(row.text, value);
  }
  EXPECT_EQ(1, VLIBCFileCheckKeyValue(path.c_str(), "key", "1234\""));
  for (const char* other : {"1234", "1234\" ", "", "3"})
    EXPECT_EQ(0, VLIBCFileCheckKeyValue(path.c_str(), "key", other));
}

TEST_F(KeyValueFile, WritingKeepsEveryOtherByteAndRefusesWhatWouldNotReadBack) {
  const std::string mail = "ann.o'neil+x@kivo.example; 100% #1 \xc3\xa4", line = "key=\"" + mail + "\"\n";
  const struct {
    std::string before, after;
  } rows[] = {{"", line},
              {"# top\n\nother = 'x'\n", "# top\n\nother = 'x'\n" + line},
              {"no newline", "no newline\n" + line},
              {"a=1\nkey=old\n#key=c\nkey=\"dup\"\nz=2", "a=1\n" + line + "#key=c\nkey=\"dup\"\nz=2"},
              {"key=\"old", line}};
  for (const auto& row : rows) {
    Spill(path, row.before, 0640);
    EXPECT_EQ(0, chown(path.c_str(), 934, 12));
    EXPECT_EQ(0, Set("key", mail));
    EXPECT_EQ(row.after, Slurp(path));
    EXPECT_EQ("0640 934:12", ModeAndOwner(path));
  }
  EXPECT_EQ(0, unlink(path.c_str()) + unlink((dir + ".conf.lock").c_str()));
  for (const char* format : {"", "%s=\"%s\"", "%s=%d\n", "%s=%n\n", "%1$s=%s\n", "%s=\"%s\"\nx=1\n", "%s=\"%s\"%\n"})
    EXPECT_GT(0, Set("key", "value", format)) << format;
  for (const char* key : {"", "a b", "a=b", "a\nb", "#a", "a\"", "$a"}) EXPECT_GT(0, Set(key, "value")) << key;
  EXPECT_EQ("none", ModeAndOwner(path));
  for (const mode_t mask : {0777u, 0u}) {
    umask(mask);
    unlink(path.c_str());
    EXPECT_EQ(0, Set("key", "\"q\"", nullptr));
    EXPECT_EQ("0600 0:0", ModeAndOwner(path));
  }
  umask(022);
  EXPECT_EQ("\"q\"", Get());
}

TEST_F(KeyValueFile, HostileValuesReadBackAddNoLineAndDoNothingInAShell) {
  for (const char* key : {"account_host", "key", "last"}) Set(key, "1");
  for (const char* value :
       {"x\"\naccount_host=\"evil", "$(touch /tmp/pwned)`touch /tmp/pwned`", "\r\t\x01\x1b\x7f\xff\\"}) {
    for (const char* format : {"%s=%s\n", "%s=\"%s\"\n"}) {
      EXPECT_EQ(0, Set("key", value, format));
      EXPECT_EQ(value, Get());
      const std::string content = Slurp(path);
      EXPECT_EQ(3,
                std::count_if(content.begin(), content.end(), [](char c) { return (c >= 0 && c < ' ') || c == 127; }))
          << "three newlines and no other control character in " << content;
    }
    EXPECT_EQ(0, VLIBCExecl("/bin/sh", 0, "-c", ". \"$0\"; test \"$account_host$last\" = 11 && test ! -e /tmp/pwned",
                            path.c_str(), static_cast<char*>(nullptr)));
  }
}

TEST_F(KeyValueFile, FollowsNoLinkWhenItWrites) {
  const std::string target = dir + "target", lock = dir + ".conf.lock";
  Spill(target, "key=old\n");
  ASSERT_EQ(0, symlink(target.c_str(), path.c_str()));
  EXPECT_EQ("old", Get()) << "reading through a link is fine";
  EXPECT_GT(0, Set("key", "new"));
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NOT_REGULAR), VLIBCErrGet());
  ASSERT_EQ(0, unlink(path.c_str()) + unlink(lock.c_str()) + symlink(target.c_str(), lock.c_str()));
  EXPECT_GT(0, Set("key", "new"));
  ASSERT_EQ(0, unlink(lock.c_str()) + symlink(target.c_str(), (dir + ".conf.new").c_str()));
  EXPECT_EQ(0, Set("key", "new")) << "a left-over is replaced";
  EXPECT_EQ("key=old\n", Slurp(target));
  ASSERT_EQ(0, unlink(path.c_str()) + mkfifo(path.c_str(), 0600));
  EXPECT_EQ("(fails)", Get()) << "and does not hang";
  EXPECT_GT(0, Set("key", "new"));
}

TEST_F(KeyValueFile, SixteenWritersOfTwoUsersLoseAndTearNothing) {
  constexpr int kWriters = 16, kReaders = 4, kRounds = 100;
  ASSERT_EQ(0, chown(dir.c_str(), 934, 934) + Set("first", "by root") + chown(path.c_str(), 934, 934));
  const auto write = [&](int writer) {
    const std::string key = "key" + std::to_string(writer);
    for (int round = 1; round <= kRounds; ++round) {
      if (Set(key, std::to_string(round)) != 0 || Get(key.c_str()) != std::to_string(round)) return 1;
    }
    return 0;
  };
  const auto watch = [&] {
    std::size_t most = 0;
    for (int look = 0; look < 3000; ++look) {
      const std::string content = Slurp(path);
      const auto lines = static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n'));
      if (content.empty() || content.back() != '\n' || lines < most) return 2;
      most = lines;
    }
    return 0;
  };
  EXPECT_EQ(0, FailuresOf(kWriters + kReaders, [&](int child) { return child < kWriters ? write(child) : watch(); }));
  for (int writer = 0; writer < kWriters; ++writer)
    EXPECT_EQ(std::to_string(kRounds), Get(("key" + std::to_string(writer)).c_str()));
  EXPECT_EQ("0600 934:934", ModeAndOwner(dir + ".conf.lock"));
}

}  // namespace
