// The device as the platform knows it: facts, API key, token, time zone, reports, and PKCE pairs.
#include <fcntl.h>
#include <openssl/evp.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>
#include <json/json.h>

#include "test_files.h"

namespace {
time_t gTime = 0;  // what time() gives; 0: the real one
}

extern "C" time_t time(time_t* out) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const time_t result = gTime ? gTime : now.tv_sec;
  if (out) *out = result;
  return result;
}

namespace {

const std::string kHostConf = "/usr/varn/etc/host.conf";
const std::string kPrivate = "/usr/varn/etc/varnholt-account/private/";
const std::string kKeyFile = kPrivate + "api_key";

template <class Call>
std::string Text(Call call, int size = 256) {
  char buffer[256] = "untouched";
  return call(buffer, size) < 0 ? "fails: " + std::string(buffer) : buffer;
}

std::string Agent(const char* product) {
  return Text([&](char* out, int size) { return VLIBLuinfoUserAgentGet(product, out, size); });
}

TEST(DeviceFacts, ComeFromTheConfigurationElseFromTheMachine) {
  Spill("/etc/machine-id", "0123456789abcdef0123456789abcdef\n");
  Spill("/etc/os-release", "NAME=x\nVERSION_ID=\"12 (x)\"\n");
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
  EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NO_INTERFACE), VLIBCErrGet());
  for (const char* id : {"", "\n", "uninitialized\n"}) {
    Spill("/etc/machine-id", id);
    EXPECT_EQ("fails: ", Text(VLIBGetSerialNumber));
    EXPECT_EQ(static_cast<unsigned>(VLIB_ERR_NO_SERIAL), VLIBCErrGet());
  }
  EXPECT_EQ("fails: ", Agent(""));
  EXPECT_EQ("fails: untouched", Text(VLIBGetSerialNumber, 0));
}

class CloudService : public testing::Test {
 protected:
  CloudService() {
    Spill(kHostConf, "serial=\"2040VKN000001\"\n");
    unlink(kKeyFile.c_str());
  }
  static std::string Key(int create) {
    char key[VARN_CLOUD_API_KEY_SIZE];
    return VARNCloudServiceGetApiKey(key, create) < 0 ? "fails: " + std::string(key) : key;
  }
};

TEST_F(CloudService, KeyIsMadeOnceReplacedOnRequestAndDroppedWhenExpired) {
  EXPECT_EQ("fails: ", Key(0));
  EXPECT_EQ(2, VARNCloudServiceGetErrorCode());
  umask(0);
  const std::string first = Key(1);
  umask(022);
  EXPECT_EQ(0, VARNCloudServiceGetErrorCode());
  EXPECT_EQ(64u, first.size());
  EXPECT_EQ("600 934:934", ModeAndOwner(kKeyFile));
  EXPECT_EQ(first, Key(0));
  EXPECT_EQ(first, Key(1));
  char key[VARN_CLOUD_API_KEY_SIZE];
  ASSERT_EQ(0, VARNCloudServiceRegisterApiKey(key));
  EXPECT_NE(first, key);
  EXPECT_EQ(key, Key(0));
  EXPECT_GT(0, VARNCloudServiceActionHandler(1));
  EXPECT_EQ(key, Key(0));
  EXPECT_EQ(0, VARNCloudServiceActionHandler(2));
  EXPECT_EQ("fails: ", Key(0));
  EXPECT_NE(key, Key(1));
  Spill(kKeyFile, "two words\n", 0600);
  EXPECT_EQ(64u, Key(1).size()) << "a damaged key is made anew";
}

TEST_F(CloudService, SaysWhyThereIsNoKey) {
  Spill(kHostConf, "");
  Spill("/etc/machine-id", "");
  EXPECT_EQ("fails: ", Key(1));
  EXPECT_EQ(9, VARNCloudServiceGetErrorCode());
  Spill(kHostConf, "serial=\"S\"\n");
  ASSERT_EQ(0, symlink("/tmp/elsewhere", kKeyFile.c_str()));
  EXPECT_EQ("fails: ", Key(1));
  EXPECT_EQ(2, VARNCloudServiceGetErrorCode());
  unlink(kKeyFile.c_str());
  EXPECT_EQ(0, Await(InChild([] {
              if (setresuid(1000, 1000, 1000) != 0) return 1;
              if (Key(1) != "fails: " || VLIBCErrGet() != VLIB_ERR_ACCESS) return 2;
              return VARNCloudServiceGetErrorCode() == 2 && VARNCloudServiceActionHandler(2) < 0 ? 0 : 3;
            })));
}

TEST_F(CloudService, EverybodyWhoAsksAtOnceGetsTheSameKey) {
  for (int round = 0; round < 20; ++round) {
    int ends[2];
    ASSERT_EQ(0, VARNCloudServiceActionHandler(2) + pipe(ends));
    std::vector<pid_t> children;
    for (int child = 0; child < 8; ++child) {
      children.push_back(InChild([&] {
        if (child % 2 == 0 && !BecomeAccountService()) return 1;
        const std::string key = Key(1);
        return write(ends[1], key.data(), key.size()) == 64 ? 0 : 2;
      }));
    }
    for (const pid_t child : children) EXPECT_EQ(0, Await(child));
    char all[8 * 64];
    ASSERT_EQ(static_cast<ssize_t>(sizeof all), read(ends[0], all, sizeof all));
    std::set<std::string> keys;
    for (int i = 0; i < 8; ++i) keys.emplace(all + i * 64, 64);
    EXPECT_EQ(1u, keys.size());
    close(ends[0]);
    close(ends[1]);
  }
}

TEST_F(CloudService, TokenIsTheStretchedDigestOfTheSerial) {
  const struct {
    std::string serial;
    const char* token;
  } rows[] = {{"2040VKN000009", "a990ea3b450dd618a02937a1b38a7639"},                    // one round
              {"2040VKN000015", "9917cbd0067065a7a2a1ce3735cd8926"},                    // two
              {"2040VKN000001", "e05e64f82e307a2d1e6d118caf7935d0"},                    // nine
              {"2040VKN000005", "2b35e008d1dbf1d83950dd2ef1a31540"},                    // sixteen
              {std::string(4095, 'A') + "BBBBB", "6fb260a304daa68954b704a4d683b9cd"}};  // longer than takes part
  char token[33];
  for (const auto& row : rows) {
    EXPECT_EQ(0, VARNCloudServiceLutokenGenerateToken(row.serial.c_str(), token, sizeof token));
    EXPECT_STREQ(row.token, token);
  }
  EXPECT_GT(0, VARNCloudServiceLutokenGenerateToken("S", token, 32));
  EXPECT_EQ(2, VARNCloudServiceGetErrorCode());
  EXPECT_GT(0, VARNCloudServiceLutokenGenerateToken("", token, 33));
}

TEST(TimeZone, IsWhatTheMachineSays) {
  const struct {
    const char *timezone, *localtime, *zone;
  } rows[] = {{"Europe/Berlin\n", "/usr/share/zoneinfo/Asia/Taipei", "Europe/Berlin"},
              {nullptr, "/usr/share/zoneinfo/Asia/Taipei", "Asia/Taipei"},
              {nullptr, "../usr/share/zoneinfo/America/Argentina/Buenos_Aires", "America/Argentina/Buenos_Aires"},
              {"bad zone; x\n", "/usr/share/zoneinfo/Etc/GMT+5", "Etc/GMT+5"},
              {"", nullptr, "UTC"},
              {nullptr, "/somewhere/else", "fails: "}};
  for (const auto& row : rows) {
    unlink("/etc/timezone");
    unlink("/etc/localtime");
    if (row.timezone) Spill("/etc/timezone", row.timezone);
    if (row.localtime) {
      ASSERT_EQ(0, symlink(row.localtime, "/etc/localtime"));
    }
    int needed = -7;
    EXPECT_EQ(row.zone, Text([&](char* out, int size) { return VARNZoneGet(out, size, &needed); }));
    EXPECT_EQ(*row.zone == 'f' ? 0 : static_cast<int>(strlen(row.zone)) + 1, needed);
  }
  Spill("/etc/timezone", "Asia/Taipei");
  int needed = 0;
  EXPECT_EQ("fails: ", Text([&](char* out, int) { return VARNZoneGet(out, 11, &needed); }));
  EXPECT_EQ(12, needed);
  EXPECT_EQ("Asia/Taipei", Text([&](char* out, int) { return VARNZoneGet(out, 12, nullptr); }));
}

TEST(TimeZone, InfoNamesItInTheDatabase) {
  VLIBSzHash* info = VLIBCSzHashAlloc(1024);
  EXPECT_LT(0, VARNZoneGetInfo("Europe/Berlin", info));
  EXPECT_STREQ("Europe/Berlin", VLIBCSzHashGetValue(info, "nameInTZDB"));
  for (const char* zone : {"", "Mars/Base", "../../../etc/passwd", "/etc/passwd"})
    EXPECT_GT(0, VARNZoneGetInfo(zone, info));
  VLIBCSzHashFree(info);
}

std::vector<Json::Value> JsonLines(const std::string& path) {
  std::vector<Json::Value> lines;
  std::istringstream in(Slurp(path));
  for (std::string line; std::getline(in, line);) {
    std::istringstream text(line);
    Json::Value value;
    std::string errors;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), text, &value, &errors)) << line << errors;
    lines.push_back(value);
  }
  return lines;
}

TEST(Reports, OneLineEachWhateverTheTextsHold) {
  const std::string file = "/usr/varn/var/log/notifications.jsonl", events = "/usr/varn/var/log/events.jsonl";
  VLIBCExecl("/bin/rm", 0, "-rf", "/usr/varn/var", static_cast<char*>(nullptr));
  umask(0);
  VLIBSzHash* params = VLIBCSzHashAlloc(4);
  VLIBCSzHashSetValue(params, "%ACCOUNT%", "a\n{\"b\"}\xc3\xa4\xff<11>");
  EXPECT_EQ(0, VARNSysNotifySendNotifiction("KivoPasswordChanged", params));
  EXPECT_EQ(0, VARNSysNotifySendNotifiction("NoParams", nullptr));
  EXPECT_EQ(0, VARNLogSet1(2, 1, 0x13A00001, "ann@kivo.example", "", nullptr, "d"));
  umask(022);
  EXPECT_EQ("640 934:934", ModeAndOwner(file));
  EXPECT_EQ("640 934:934", ModeAndOwner(events));
  EXPECT_EQ("755 0:0", ModeAndOwner("/usr/varn/var/log"));
  const auto lines = JsonLines(file);
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("KivoPasswordChanged", lines[0]["tag"].asString());
  EXPECT_EQ(0u, lines[0]["params"]["%ACCOUNT%"].asString().find("a\n{\"b\"}\xc3\xa4"));
  EXPECT_TRUE(lines[1]["params"].isObject() && lines[1]["params"].empty());
  const auto event = JsonLines(events).at(0);
  EXPECT_EQ("0x13A00001", event["event"].asString());
  EXPECT_EQ("[\"ann@kivo.example\",\"\",\"\",\"d\"]\n", Json::FastWriter().write(event["args"]));
  for (int wait = 0; wait < 200 && Slurp("/var/log/syslog").find("0x13A00001") == std::string::npos; ++wait)
    usleep(10000);
  EXPECT_NE(std::string::npos, Slurp("/var/log/syslog").find("<14>varnplatform["));
  EXPECT_NE(std::string::npos, Slurp("/var/log/syslog").find("<13>varnplatform["));
  VLIBCSzHashFree(params);
}

TEST(Reports, TellTheTimeInUtc) {
  const std::string file = "/usr/varn/var/log/events.jsonl";
  setenv("TZ", "Asia/Taipei", 1);
  for (time_t now = 1; now < 4102444800; now += 86400 * 41 + 3671) {  // all of the months until 2100
    unlink(file.c_str());
    gTime = now;
    ASSERT_EQ(0, VARNLogSet1(0, 1, 1, "", "", "", ""));
    char expected[32];
    strftime(expected, sizeof expected, "%Y-%m-%dT%H:%M:%SZ", gmtime(&now));
    ASSERT_EQ(expected, JsonLines(file).at(0)["time"].asString());
  }
  gTime = 0;
  unsetenv("TZ");
}

TEST(Reports, LinesOfManyWritersOfTwoUsersNeverMix) {
  const std::string file = "/usr/varn/var/log/events.jsonl", text(2000, 'x');
  unlink(file.c_str());
  ASSERT_EQ(0, VARNLogSet1(0, 1, 0, "first", "", "", ""));
  std::vector<pid_t> children;
  for (int child = 0; child < 8; ++child) {
    children.push_back(InChild([&] {
      if (child % 2 == 0 && !BecomeAccountService()) return 1;
      for (int i = 0; i < 100; ++i) {
        if (VARNLogSet1(child, 1, 1, text.c_str(), "", "", "") != 0) return 2;
      }
      return 0;
    }));
  }
  for (const pid_t child : children) EXPECT_EQ(0, Await(child));
  EXPECT_EQ(801u, JsonLines(file).size());
  unlink(file.c_str());
  ASSERT_EQ(0, symlink("/tmp/elsewhere", file.c_str()));
  EXPECT_GT(0, VARNLogSet1(0, 1, 1, "", "", "", ""));
  EXPECT_EQ("", ModeAndOwner("/tmp/elsewhere"));
  unlink(file.c_str());
}

std::string ChallengeOf(const std::string& verifier) {
  unsigned char digest[EVP_MAX_MD_SIZE], text[64];
  unsigned length = 0;
  EVP_Digest(verifier.data(), verifier.size(), digest, &length, EVP_sha256(), nullptr);
  EVP_EncodeBlock(text, digest, static_cast<int>(length));
  std::string encoded = reinterpret_cast<char*>(text);
  std::replace(encoded.begin(), encoded.end(), '+', '-');
  std::replace(encoded.begin(), encoded.end(), '/', '_');
  return encoded.substr(0, encoded.find('='));
}

TEST(Pkce, PairIsS256AndNeverTheSame) {
  std::set<std::string> verifiers, letters;
  for (int round = 0; round < 2000; ++round) {
    char challenge[44], verifier[44];
    ASSERT_EQ(43, varn_challenge_verifier_no_save(challenge, sizeof challenge, verifier, sizeof verifier));
    ASSERT_EQ(43u, strlen(verifier));
    ASSERT_EQ(ChallengeOf(verifier), challenge);
    for (const char* c = verifier; *c; ++c) letters.emplace(1, *c);
    verifiers.insert(verifier);
  }
  EXPECT_EQ(2000u, verifiers.size());
  EXPECT_EQ(64u, letters.size()) << "all of the alphabet and nothing else: no padding, no plus, no slash";
  char small[43], enough[44];
  EXPECT_GT(0, varn_challenge_verifier_no_save(small, sizeof small, enough, sizeof enough));
  EXPECT_GT(0, varn_challenge_verifier_no_save(enough, sizeof enough, small, sizeof small));
}

}  // namespace
