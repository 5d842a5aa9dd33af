// The device as the platform knows it: facts, API key, time zone, reports, and PKCE pairs.
#include <string.h>

#include <set>
#include <sstream>

#include <gtest/gtest.h>
#include <json/json.h>

#include "test_files.h"

namespace {

const std::string kHostConf = "/usr/varn/etc/host.conf", kEvents = "/usr/varn/var/log/events.jsonl";
const std::string kKeyFile = "/usr/varn/etc/varnholt-account/private/api_key";

template <class Call>
std::string Text(Call call, int size = 256) {
  char buffer[256] = "untouched";
  return call(buffer, size) < 0 ? "fails: " + std::string(buffer) : buffer;
}

std::string Agent(const char* product) {
  return Text([&](char* out, int size) { return VLIBLuinfoUserAgentGet(product, out, size); });
}

TEST(DeviceFacts, ComeFromTheConfigurationElseFromTheMachine) {
  Spill("/etc/os-release", "NAME=x\nVERSION_ID=\"12 (x)\"\n");
  Spill("/etc/machine-id", "0123456789abcdef0123456789abcdef\n");
  Spill(kHostConf, "serial=\"S 1\"\noriginal_serial=S0\nmac=\"02:00:5e:20:40:01\"\nproduct_version=\"1.0-100\"\n");
  EXPECT_EQ("S 1", Text(VLIBGetSerialNumber));
  EXPECT_EQ("S", Text(VLIBGetSerialNumber, 2)) << "cut, not refused";
  EXPECT_EQ("S0", Text(VLIBGetOriginalSerialNumber));
  EXPECT_EQ("02:00:5e:20:40:01", Text(VARNLuinfoCloudServiceGetMacAddress));
  EXPECT_EQ(0u, Agent("kivo").find("kivo/1.0-100 (Lum; "));
  Spill(kHostConf, "serial=\"S 1\"\n");
  EXPECT_EQ("S 1", Text(VLIBGetOriginalSerialNumber));
  unlink(kHostConf.c_str());
  EXPECT_EQ("0123456789abcdef0123456789abcdef", Text(VLIBGetSerialNumber));
  EXPECT_EQ(0u, Agent("k\r\nX: (y)").find("k__X___y_/12__x_ (Lum; ")) << Agent("k\r\nX: (y)");
  EXPECT_EQ("fails: ", Text(VARNLuinfoCloudServiceGetMacAddress)) << "there is only a loopback interface here";
  for (const char* id : {"", "\n", "uninitialized\n"}) {
    Spill("/etc/machine-id", id);
    EXPECT_EQ("fails: ", Text(VLIBGetSerialNumber));
    EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NO_SERIAL), VLIBCErrGet());
  }
}

class CloudService : public testing::Test {
 protected:
  CloudService() {
    Spill(kHostConf, "serial=\"2040VKN000001\"\n");
    unlink(kKeyFile.c_str());
  }
  static std::string Key(int create) {
    char key[VARN_CLOUD_API_KEY_SIZE];
    if (VARNCloudServiceGetApiKey(key, create) < 0) return "fails: " + std::to_string(VARNCloudServiceGetErrorCode());
    return key;
  }
};

TEST_F(CloudService, KeyIsMadeOnceReplacedOnRequestAndDroppedWhenExpired) {
  EXPECT_EQ("fails: 2", Key(0));
  umask(0);
  const std::string first = Key(1);
  umask(022);
  EXPECT_EQ(64u, first.size());
  EXPECT_EQ("0600 934:934", ModeAndOwner(kKeyFile));
  EXPECT_EQ(first, Key(0));
  EXPECT_EQ(first, Key(1));
  char key[VARN_CLOUD_API_KEY_SIZE];
  ASSERT_EQ(0, VARNCloudServiceRegisterApiKey(key));
  EXPECT_NE(first, key);
  EXPECT_EQ(0, VARNCloudServiceActionHandler(2));
  EXPECT_NE(key, Key(1));
  Spill(kKeyFile, "two words\n", 0600);
  EXPECT_EQ(64u, Key(1).size()) << "a damaged key is made anew";
  EXPECT_EQ(
      0, Await(InChild([] {
        if (setresuid(1000, 1000, 1000) != 0) return 1;
        return Key(1) == "fails: 2" && VLIBCErrGet() == VLIB_ERR_ACCESS && VARNCloudServiceActionHandler(2) < 0 ? 0 : 2;
      })));
  ASSERT_EQ(0, unlink(kKeyFile.c_str()) + symlink("/tmp/elsewhere", kKeyFile.c_str()));
  EXPECT_EQ("fails: 2", Key(1));
}

TEST_F(CloudService, EverybodyWhoAsksAtOnceGetsTheSameKey) {
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  for (int round = 0; round < 20; ++round) {
    ASSERT_EQ(0, VARNCloudServiceActionHandler(2));
    EXPECT_EQ(0, FailuresOf(8, [&](int) { return write(ends[1], Key(1).data(), 64) == 64 ? 0 : 1; }));
    char all[8 * 64];
    ASSERT_EQ(static_cast<ssize_t>(sizeof all), read(ends[0], all, sizeof all));
    for (int i = 0; i < 8; ++i) EXPECT_EQ(Key(0), std::string(all + i * 64, 64));
  }
  close(ends[0]);
  close(ends[1]);
}

TEST(TimeZone, IsWhatTheMachineSays) {
  const struct {
    const char *timezone, *localtime, *zone;
  } rows[] = {{"Europe/Berlin\n", "/usr/share/zoneinfo/Asia/Taipei", "Europe/Berlin"},
              {"", "../usr/share/zoneinfo/America/Argentina/Buenos_Aires", "America/Argentina/Buenos_Aires"},
              {"bad zone; x\n", "/usr/share/zoneinfo/Etc/GMT+5", "Etc/GMT+5"},
              {"", nullptr, "UTC"},
              {"", "/somewhere/else", "fails: "}};
  for (const auto& row : rows) {
    Spill("/etc/timezone", row.timezone);
    unlink("/etc/localtime");
    EXPECT_TRUE(!row.localtime || symlink(row.localtime, "/etc/localtime") == 0);
    int needed = -7;
    EXPECT_EQ(row.zone, Text([&](char* out, int size) { return VARNZoneGet(out, size, &needed); }));
    EXPECT_EQ(*row.zone == 'f' ? 0 : static_cast<int>(strlen(row.zone)) + 1, needed);
  }
}

std::vector<Json::Value> JsonLines(const std::string& path) {
  std::vector<Json::Value> lines;
  std::istringstream in(Slurp(path));
  for (std::string line, errors; std::getline(in, line);) {
    std::istringstream text(line);
    lines.emplace_back();
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &lines.back(), &errors)) << line << errors;
  }
  return lines;
}

TEST(Reports, LinesOfManyWritersOfTwoUsersNeverMixAndNoLinkIsFollowed) {
  const std::string text(2000, 'x');
  std::filesystem::remove_all("/usr/varn/var");
  ASSERT_EQ(0, VARNLogSet1(0, 1, 0, "first", "", "", ""));
  EXPECT_EQ(0, FailuresOf(8, [&](int child) {
              int failures = 0;
              for (int i = 0; i < 100; ++i) failures += VARNLogSet1(child, 1, 1, text.c_str(), "", "", "") != 0;
              return failures;
            }));
  EXPECT_EQ(801u, JsonLines(kEvents).size());
  EXPECT_EQ("0640 934:934", ModeAndOwner(kEvents));
  ASSERT_EQ(0, unlink(kEvents.c_str()) + symlink("/tmp/elsewhere", kEvents.c_str()));
  EXPECT_GT(0, VARNLogSet1(0, 1, 1, "", "", "", ""));
  EXPECT_EQ("none", ModeAndOwner("/tmp/elsewhere"));
  unlink(kEvents.c_str());
}

TEST(Pkce, PairIsOfTheRightLengthAndAlphabetAndNeverTheSame) {
  std::set<std::string> texts;
  std::set<char> letters;
  char challenge[44], verifier[44];
  for (int round = 0; round < 100; ++round) {
    ASSERT_EQ(43, varn_challenge_verifier_no_save(challenge, sizeof challenge, verifier, sizeof verifier));
    texts.insert({challenge, verifier});
    for (const char* text : {challenge, verifier}) letters.insert(text, text + 43);
  }
  EXPECT_EQ(200u, texts.size());
  EXPECT_EQ(64u, letters.size()) << "all of the alphabet and nothing else: no padding, no plus, no slash, no end";
}

}  // namespace
