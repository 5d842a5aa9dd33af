// What the tests of the library's operations share: a device whose cloud knows Ann, her tokens, and the operations.
#pragma once

#include <json/value.h>
#include <sys/types.h>
#include <varnkivo/pkce_client.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cloud.h"
#include "fake_platform.h"
#include "process.h"

namespace accounttest {

using namespace testsupport;

constexpr char kSerial[] = "2040VKN000001", kEmail[] = "ann@example.com", kUserId[] = "1001";
constexpr char kPassword[] = "correct horse & +battery", kAuthKey[] = "AuthKey+0123456789/abcdef==";
constexpr char kApiKey[] = "ApiKey-0123456789-abcdefghij", kAccessToken[] = "AccessToken-0123456789-abcdefghij";
constexpr char kApiKeyFile[] = "/usr/varn/etc/varnholt-account/private/api_key";
constexpr char kTokenFile[] = "/usr/varn/etc/varnholt-account/private/lum_token.json";
constexpr char kLoginConfig[] = "/usr/varn/etc.defaults/varnholt-account/config/pkce_login.conf";
constexpr char kNotifications[] = "/usr/varn/var/log/notifications.jsonl";
constexpr char kQuery[] = "device/api/user/query", kTokenPath[] = "oauth2/token", kLogoutPath[] = "device/api/logout";
constexpr std::int64_t kNow = 1800000000;
constexpr int kHour = 3600;

/// A new device with an API key at the time kNow, a cloud where Ann can sign in, and no secret allowed in the log.
struct Bench {
  Bench();
  /// The record that a sign-in leaves, last queried so long ago.
  void SignIn(std::int64_t secondsAgo);
  /// A token set of the device as issued `age` seconds ago.
  kivosim::TokenSet StoreTokens(int age);
  /// The client "lum" with its configuration.
  std::unique_ptr<varnkivo::PkceClient> Client() const;
  /// The next request of `path` has this answer, and the simulator does nothing about it.
  void Answer(const std::string& path, const std::string& body, int status = 200);
  /// "METHOD TARGET HOST BODY" of each request.
  std::vector<std::string> Sent() const;
  /// Names of the calls that begin with one of `names`, in order; "set KEY" is a write to the record.
  std::vector<std::string> Steps(const std::vector<std::string>& names) const;

  FakePlatform device;  // VARNKIVOServerConfigGet can be made to fail too; the slot is 6 then
  Cloud cloud;
};

/// An operation with arguments that are good, and how its line about a refusal begins.
struct Operation {
  std::string name, source, path, refused;
  std::function<int(Json::Value& out)> run;
  bool isLogin = false;
};
const std::vector<Operation>& Operations();
/// Those whose names stand in `names`.
std::vector<Operation> Named(const std::string& names);

/// The device's own fields of a legacy request, with the credentials that go into its token.
std::string DeviceFields(const std::string& id = "", const std::string& password = "");
inline void WriteRecord(const std::string& content) { WritePrivateFile(kRecord, content); }
inline void WriteTokenFile(const std::string& content) { WritePrivateFile(kTokenFile, content); }
/// Names of the token files in the private folder.
std::vector<std::string> TokenFiles();
/// "TAG PARAMS" of the one notification, or "".
std::string Notification();
/// Runs `work` in a child that has lowered its ids from root, keeping `saved` to come back, and returns its result.
std::string AsUser(uid_t uid, gid_t gid, id_t saved, const std::function<std::string()>& work);
/// "PRIORITY SOURCE:LINE TEXT\n" of each line that the library has logged.
std::string Transcript(const FakePlatform& device);
/// The record that "KEY=VALUE|KEY=VALUE" stands for, its first `count` lines.
std::string Lines(const std::string& pairs, std::size_t count = SIZE_MAX);
/// What a call came to: "value", or "code N: MESSAGE", or "bad_cast".
std::string Result(const std::function<std::string()>& call);

Json::Value ParseJson(const std::string& text);
std::string JsonText(const Json::Value& value);

}  // namespace accounttest
