// Reads and writes the cache of a package's configuration. Touches that file only.
// A planted one would send the package's codes and refresh tokens to whoever planted it, so owner and mode decide.
#include "package_config_file.h"

#include "internal/account_files.h"
#include "internal/file_text.h"
#include "internal/json_utils.h"
#include "internal/privilege_bracket.h"
#include "leftovers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace varnkivo {
namespace {

constexpr const char* kSource = "package_pkce_client";
constexpr mode_t kPublicMode = 0644;

/// A process that has lowered its ids can be offered a file by the very user it has lowered them to.
bool HasOneId() {
  uid_t real = 0, effective = 0, saved = 0;
  return getresuid(&real, &effective, &saved) == 0 && real == effective && saved == effective;
}

bool IsTrusted(const struct stat& facts) {
  const bool ownerIsTrusted =
      facts.st_uid == 0 || facts.st_uid == kAccountUid || (facts.st_uid == geteuid() && HasOneId());
  return S_ISREG(facts.st_mode) && facts.st_nlink == 1 && ownerIsTrusted && (facts.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/// A folder in the way is put aside: it is nobody's who has a right to the name.
bool Rename(const std::string& from, const std::string& to) {
  if (rename(from.c_str(), to.c_str()) == 0) return true;
  if (errno != EISDIR) return false;
  if (rmdir(to.c_str()) != 0 && rename(to.c_str(), (from + ".aside").c_str()) != 0) return false;
  return rename(from.c_str(), to.c_str()) == 0;
}

/// In a sticky folder only its owner and root may replace a file, and another user's may be there first.
bool Replace(const std::string& from, const std::string& to) {
  if (Rename(from, to)) return true;
  const PrivilegeBracket bracket(kSource, Raise::kServiceToo);
  return bracket.Entered() && Rename(from, to);
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
  const PrivilegeBracket bracket(kSource);
  if (!bracket.Entered()) return false;
  const std::size_t slash = path.rfind('/');
  RemoveLeftovers(path.substr(0, slash), path.substr(slash + 1) + ".", "");
  std::string pending = path + ".XXXXXX";
  const int file = mkostemp(pending.data(), O_CLOEXEC);
  if (file < 0) return false;
  if (fchown(file, kAccountUid, kAccountGid) != 0) errno = 0;  // the service's own is trusted as well
  const bool written = WriteAll(file, text) && fchmod(file, kPublicMode) == 0;
  close(file);
  if (written && Replace(pending, path)) return true;
  unlink(pending.c_str());
  return false;
}

void RemoveTrustedConfig(const std::string& path) {
  const PrivilegeBracket bracket(kSource);
  if (bracket.Entered()) unlink(path.c_str());
}

}  // namespace varnkivo
