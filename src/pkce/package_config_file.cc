// Reads and writes the cache of a package's configuration. Touches that file only.
// A planted one would send the package's codes and refresh tokens to whoever planted it, so owner and mode decide.
#include "package_config_file.h"

#include "internal/account_files.h"
#include "internal/file_text.h"
#include "internal/json_utils.h"
#include "internal/privilege_bracket.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace varnkivo {
namespace {

constexpr const char* kSource = "package_pkce_client";
constexpr mode_t kPublicMode = 0644;

bool IsTrusted(const struct stat& facts) {
  const bool ownerIsTrusted = facts.st_uid == 0 || facts.st_uid == kAccountUid || facts.st_uid == geteuid();
  return S_ISREG(facts.st_mode) && facts.st_nlink == 1 && ownerIsTrusted && (facts.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

std::optional<Json::Value> ReadTrustedConfig(const std::string& path) {
  const std::optional<Wiped> text = ReadFileText(path.c_str(), IsTrusted);
  Json::Value config;
  if (!text || !ParseJson(*text, config) || !config.isObject()) return std::nullopt;
  return config;
}

bool WriteTrustedConfig(const std::string& path, const Json::Value& config) {
  const Wiped text = JsonLine(config);
  if (text.size() > kMostFileBytes) return false;  // it could not be read again
  const PrivilegeBracket bracket(kSource);         // in a sticky folder only its owner and root may replace a file
  std::string pending = path + ".XXXXXX";
  const int file = bracket.Entered() ? mkostemp(pending.data(), O_CLOEXEC) : -1;
  if (file < 0) return false;
  if (fchown(file, kAccountUid, kAccountGid) != 0) errno = 0;  // one of this user's own is trusted, too
  const bool written = WriteAll(file, text) && fchmod(file, kPublicMode) == 0;
  close(file);
  if (written && rename(pending.c_str(), path.c_str()) == 0) return true;
  unlink(pending.c_str());
  return false;
}

}  // namespace varnkivo
