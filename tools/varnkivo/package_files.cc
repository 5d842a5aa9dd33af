// Looks for token files and cached configurations. Touches nothing and waits for nothing. A name with a comma is no
// client: such a file is room that a running renewal has taken for the next token set.
#include "package_files.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include "device_files.h"
#include "failure.h"
#include "json_file.h"

namespace kivotool {
namespace {

constexpr char kSuffix[] = "_token.json";
constexpr std::int64_t kConfigurationLifetime = 30 * 3600;

struct FolderCloser {
  void operator()(DIR* folder) const noexcept { closedir(folder); }
};

/// Empty where `file` is no client's token file.
std::string ClientOf(const std::string& file) {
  const std::size_t suffix = std::strlen(kSuffix);
  if (file.size() <= suffix || file[0] == '.' || file.compare(file.size() - suffix, suffix, kSuffix) != 0) return "";
  const std::string client = file.substr(0, file.size() - suffix);
  return client.find(',') == std::string::npos ? client : "";
}

/// A process that has lowered its ids can be offered a file by the very user it has lowered them to.
bool HasOneId() {
  uid_t real = 0, effective = 0, saved = 0;
  return getresuid(&real, &effective, &saved) == 0 && real == effective && saved == effective;
}

/// As the library has it; it takes no notice of others.
bool IsTrusted(const struct stat& facts) {
  const bool ownerIsTrusted =
      facts.st_uid == 0 || facts.st_uid == kAccountId || (facts.st_uid == geteuid() && HasOneId());
  return facts.st_nlink == 1 && ownerIsTrusted && (facts.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// The library takes a number here and nothing else; a text counts as never.
std::int64_t CachedAt(const Json::Value& configuration) {
  try {
    const Json::Value& created = configuration["created_at"];
    return created.isNumeric() ? created.asInt64() : 0;
  } catch (const Json::Exception&) {  // out of range
    return 0;
  }
}

}  // namespace

std::vector<std::string> ClientsWithTokens() {
  const std::unique_ptr<DIR, FolderCloser> folder(opendir(kPrivateFolder));
  if (!folder && errno != ENOENT)
    throw Failure{kPermission,
                  std::nullopt,
                  std::string("The tokens are out of reach for this user: ") + std::strerror(errno) + ".",
                  Retry::kNo,
                  "Nothing; no file was touched.",
                  "sudo varnkivo packages"};
  std::vector<std::string> clients;
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
    const std::string client = ClientOf(entry->d_name);
    if (!client.empty()) clients.push_back(client);
  }
  std::sort(clients.begin(), clients.end(), [](const std::string& a, const std::string& b) {
    return std::make_pair(a != kDeviceClient, a) < std::make_pair(b != kDeviceClient, b);
  });
  return clients;
}

std::string ConfigurationPath(const std::string& package) { return "/tmp/account_" + package + "_pkce_client.conf"; }

ConfigurationState ReadConfigurationState(const std::string& package, std::int64_t now) {
  using Kind = ConfigurationState::Kind;
  const JsonFile file = ReadJsonFile(ConfigurationPath(package));
  if (!file.known || (file.exists && !IsTrusted(file.facts))) return {Kind::kIgnored, 0};
  if (!file.exists) return {};
  const std::int64_t cachedAt = CachedAt(file.document);
  return {now - kConfigurationLifetime > cachedAt ? Kind::kStale : Kind::kFresh, cachedAt};
}

}  // namespace kivotool
