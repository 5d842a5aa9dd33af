// Keeps token sets on disk. Touches the private directory, inside the privilege bracket.
// A reader sees the old set or the new one, never a part: a new set is written beside its target and renamed over it.
// The sign-out removes whatever ends in "_token.json", and so also what a crash leaves here.
#include "token_file.h"

#include "internal/account_files.h"
#include "internal/file_text.h"
#include "internal/json_utils.h"
#include "internal/privilege_bracket.h"
#include "internal/wiped.h"
#include "kivo_exception.h"
#include "leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace varnkivo {
namespace {

constexpr const char* kSource = "pkce_client";
constexpr const char* kSaveSource = "..//include/internal/json_utils";
constexpr const char* kSuffix = "_token.json";
constexpr std::size_t kLongestName = 128;
constexpr off_t kRoom = 64 << 10;  // bytes; more than a token set has
constexpr const char* kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";

std::string InPrivateDirectory(const std::string& name) { return std::string(kPrivateDirectory) + "/" + name; }

void RequireEntered(const PrivilegeBracket& bracket, Site site) {
  if (bracket.Entered()) return;
  LogError(site, "Failed to change permission");
  throw KivoException(KIVO_ERR_SYSTEM);
}

/// fallocate that asks for real blocks also where the file system has no such call.
bool Allocate(int file) {
  int error = 0;
  while ((error = posix_fallocate(file, 0, kRoom)) == EINTR) continue;
  errno = error;
  return error == 0;
}

void SyncDirectory() {
  const int directory = open(kPrivateDirectory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  fsync(directory);
  close(directory);
}

}  // namespace

bool IsClientName(const std::string& name) {
  return !name.empty() && name.size() <= kLongestName && name[0] != '.' &&
         name.find_first_not_of(kAllowed) == std::string::npos;
}

KivoException NoTokenFile() { return KivoException(KIVO_ERR_TOKEN, "Failed to find an existed token file"); }

TokenFile::TokenFile(const std::string& client) : path_(InPrivateDirectory(client + kSuffix)) {
  if (!IsClientName(client)) throw KivoException(KIVO_ERR_BAD_PARAM);
}

bool TokenFile::IsGone() const {
  const PrivilegeBracket bracket(kSource);
  struct stat facts = {};
  return bracket.Entered() && lstat(path_.c_str(), &facts) != 0 && errno == ENOENT;
}

bool TokenFile::Exists() const {
  const PrivilegeBracket bracket(kSource);
  const int file = bracket.Entered() ? open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC) : -1;
  if (file >= 0) close(file);
  return file >= 0;
}

std::optional<TokenSet> TokenFile::Find() const {
  std::optional<Wiped> text;
  bool exists = false;
  {
    const PrivilegeBracket bracket(kSource);
    if (bracket.Entered()) {
      text = ReadFileText(path_.c_str(), Links::kRefuse);
      exists = text || errno == EINVAL || errno == EFBIG || errno == EIO;  // there, but of no use
    }
  }
  if (!exists) return std::nullopt;
  Json::Value members;
  if (!text || !ParseJson(*text, members)) throw KivoException(KIVO_ERR_BAD_JSON);
  return TokenSet(std::move(members));
}

TokenSet TokenFile::Read() const {
  if (std::optional<TokenSet> tokens = Find()) return *std::move(tokens);
  throw NoTokenFile();
}

PendingTokenFile::PendingTokenFile(const std::string& client, Site site)
    : client_(client), target_(TokenFile(client).GetTokenFilePath()) {
  const PrivilegeBracket bracket(site);
  RequireEntered(bracket, site);
  // The comma, which no client's name has, tells them from every token file.
  RemoveLeftovers(kPrivateDirectory, client_ + ",", kSuffix);
  path_ = InPrivateDirectory(client_ + ",XXXXXX" + kSuffix);
  file_ = mkostemps(path_.data(), static_cast<int>(std::string(kSuffix).size()), O_CLOEXEC);  // 0600 from the start
  if (file_ < 0) Fail();
  fchmod(file_, kPrivateMode);                                  // also where the umask takes more than it should
  flock(file_, LOCK_EX | LOCK_NB);                              // in use, however long the answer takes
  if (fchown(file_, kAccountUid, kAccountGid) != 0) errno = 0;  // Save says so when it fails there, too
  if (Allocate(file_)) return;
  unlink(path_.c_str());
  close(file_);
  Fail();
}

PendingTokenFile::~PendingTokenFile() {
  if (!path_.empty()) {
    const PrivilegeBracket bracket(kSource);
    unlink(path_.c_str());
  }
  close(file_);
}

void PendingTokenFile::Fail() const {
  LogError(kSaveSource, "Failed to save json: %s", target_.c_str());
  throw KivoException(KIVO_ERR_BAD_JSON);
}

void PendingTokenFile::Save(const TokenSet& tokens, Site site) {
  const Wiped text = JsonLine(tokens.GetMembers());
  if (text.size() > kMostFileBytes) Fail();  // it could not be read again
  const PrivilegeBracket bracket(site);
  RequireEntered(bracket, site);
  if (!Write(text) || rename(path_.c_str(), target_.c_str()) != 0) Fail();
  path_.clear();
  SyncDirectory();
  MakePrivate(site);
}

bool PendingTokenFile::Write(const std::string& text) const {
  if (!WriteAll(file_, text)) return false;
  int result;
  while ((result = ftruncate(file_, static_cast<off_t>(text.size()))) != 0 && errno == EINTR) continue;
  if (result != 0) return false;
  while ((result = fsync(file_)) != 0 && errno == EINTR) continue;
  return result == 0;
}

void PendingTokenFile::MakePrivate(Site site) const {
  if (fchmod(file_, kPrivateMode) != 0) LogError(site, "Failed to chmod, path=%s, reason=%m", target_.c_str());
  if (fchown(file_, kAccountUid, kAccountGid) != 0)
    LogError(site, "Failed to chown, path=%s, reason=%m", target_.c_str());
}

}  // namespace varnkivo
