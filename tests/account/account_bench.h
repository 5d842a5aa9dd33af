// What the tests of the account share: a device whose cloud knows Ann, and processes that run under other ids.
#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cloud.h"
#include "fake_platform.h"

namespace accounttest {

constexpr char kSerial[] = "2040VKN000001", kEmail[] = "ann@example.com", kUserId[] = "1001";
constexpr char kPassword[] = "correct horse & +battery", kAuthKey[] = "AuthKey+0123456789/abcdef==";
constexpr char kApiKey[] = "ApiKey-0123456789-abcdefghij", kAccessToken[] = "AccessToken-0123456789-abcdefghij";
constexpr char kApiKeyFile[] = "/usr/varn/etc/varnholt-account/private/api_key";
constexpr char kQuery[] = "device/api/user/query";
constexpr std::int64_t kNow = 1800000000;

/// A new device with an API key at the time kNow, a cloud where Ann can sign in, and no secret allowed in the log.
struct Bench {
  Bench();
  /// The record that a sign-in leaves, last queried so long ago.
  void SignIn(std::int64_t secondsAgo);
  /// Names of the calls that begin with one of `names`, in order; "set KEY" is a write to the record.
  std::vector<std::string> Steps(const std::vector<std::string>& names) const;

  testsupport::FakePlatform device;  // VARNKIVOServerConfigGet can be made to fail too; the slot is 6 then
  testsupport::Cloud cloud;
};

inline void WriteRecord(const std::string& content) { testsupport::WritePrivateFile(testsupport::kRecord, content); }
/// Runs `work` in a child that has lowered its ids from root, keeping `saved` to come back, and returns its result.
std::string AsUser(uid_t uid, gid_t gid, id_t saved, const std::function<std::string()>& work);
/// "PRIORITY SOURCE:LINE TEXT\n" of each line that the library has logged, from the line `first` on.
std::string Transcript(const testsupport::FakePlatform& device, std::size_t first = 0);
/// The record that "KEY=VALUE|KEY=VALUE" stands for, its first `count` lines.
std::string Lines(const std::string& pairs, std::size_t count = SIZE_MAX);

Json::Value ParseJson(const std::string& text);
std::string JsonText(const Json::Value& value);

}  // namespace accounttest
