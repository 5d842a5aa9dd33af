// Reads and writes the account record, one key at a time, as root or as the account service user.
// Touches "user.conf" and, under another user, the effective ids for the length of one access.
// Every write leaves the file private again, also one that failed.
#include "user.h"

#include "internal/account_files.h"
#include "internal/log.h"
#include "internal/privilege_bracket.h"
#include "internal/redact.h"
#include "internal/string_utils.h"
#include "kivo_exception.h"
#include "user_impl.h"
#include "varn/platform.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>

namespace varnkivo {
namespace {

constexpr int kReadLine = 340, kWriteLine = 379;  // fixed, so that a log line tells reads from writes at a glance
constexpr std::size_t kValueSize = 2048;

Site ReadSite() { return {"user", kReadLine}; }
Site WriteSite() { return {"user", kWriteLine}; }

/// What a log line may show of a value.
std::string LoggedValue(const char* key, const std::string& value) {
  if (std::strcmp(key, "lu_auth_key") == 0) return Cut10(value);
  if (std::strcmp(key, "kivoPW") == 0) return "...";
  return Redact(value);
}

/// The record's descriptor, or -1 with errno: by descriptor because a path could be made to lead elsewhere meanwhile,
/// and with one name only, because a second one may make it somebody else's file.
int OpenRecord() {
  const int file = open(kRecordFile, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  struct stat facts = {};
  if (file < 0 || (fstat(file, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_nlink == 1)) return file;
  close(file);
  errno = EINVAL;
  return -1;
}

/// Whether the record is a file of its owner's that even he may not read.
bool IsUnreadableFile() {
  struct stat facts = {};
  const int error = errno;
  const bool isFile = error == EACCES && lstat(kRecordFile, &facts) == 0 && S_ISREG(facts.st_mode);
  errno = error;
  return isFile;
}

void MakePrivate() {
  const int file = OpenRecord();
  const bool byPath = file < 0 && IsUnreadableFile();
  if (byPath ? chmod(kRecordFile, kPrivateMode) != 0 : file < 0 || fchmod(file, kPrivateMode) != 0)
    LogError(WriteSite(), "Failed to chmod, path=%s, reason=%m", kRecordFile);
  if (byPath ? lchown(kRecordFile, kAccountUid, kAccountGid) != 0
             : file < 0 || fchown(file, kAccountUid, kAccountGid) != 0)
    LogError(WriteSite(), "Failed to chown, path=%s, reason=%m", kRecordFile);
  if (file >= 0) close(file);
}

void RequireEntered(const PrivilegeBracket& bracket) {
  if (bracket.Entered()) return;
  LogError(ReadSite(), "Change permission failed");
  throw KivoException(KIVO_ERR_SYSTEM);
}

bool Write(const char* key, const std::string& value) {
  if (value.size() >= kValueSize)
    LogError(WriteSite(), "Value of %s is longer than %zu bytes and will be read back cut", key, kValueSize - 1);
  const bool hasNul = value.find('\0') != std::string::npos;  // a C text would lose what follows it
  if (!hasNul && VLIBCFileSetKeyValue(kRecordFile, key, value.c_str(), "%s=\"%s\"\n") >= 0) return true;
  LogError(WriteSite(), "Failed to set kivo config for %s:%s", key, LoggedValue(key, value).c_str());
  return false;
}

}  // namespace

UserImpl UserImpl::Snapshot() {
  UserImpl user;
  user.snapshot_.reset(VLIBCSzHashAlloc(1024));
  if (!user.snapshot_) throw std::bad_alloc();
  const PrivilegeBracket bracket(ReadSite());
  RequireEntered(bracket);
  VLIBCFileGetKeys(kRecordFile, user.snapshot_.get(), "=");  // a record that cannot be read has no values
  return user;
}

std::string UserImpl::Get(const char* key, const std::string& fallback) const {
  char value[kValueSize] = {};
  if (snapshot_) {
    const char* found = VLIBCSzHashGetValue(snapshot_.get(), key);
    std::snprintf(value, sizeof value, "%s", found ? found : "");
    return *value ? value : fallback;
  }
  const PrivilegeBracket bracket(ReadSite());
  RequireEntered(bracket);
  return VLIBCFileGetKeyValue(kRecordFile, key, value, sizeof value) >= 1 ? value : fallback;
}

void UserImpl::Set(const char* key, const std::string& value) const {
  bool written = false;
  {
    const PrivilegeBracket bracket(WriteSite());
    if (!bracket.Entered()) {
      LogError(WriteSite(), "Failed to change permission");
      throw KivoException(KIVO_ERR_SYSTEM);
    }
    written = Write(key, value);
    MakePrivate();
  }
  if (!written) throw KivoException(KIVO_ERR_CONFIG_WRITE);
}

std::int64_t UserImpl::GetNumber(const char* key, std::int64_t fallback) const {
  const std::string text = Get(key, "");
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? number : fallback;
}

void UserImpl::SetNumber(const char* key, std::int64_t value) const {
  Set(key, format("%lld", static_cast<long long>(value)));
}

bool UserImpl::GetBool(const char* key, bool fallback) const {
  const std::string text = Get(key, "");
  return text.empty() ? fallback : text == "yes" || text == "true";
}

void UserImpl::SetBool(const char* key, bool value) const { Set(key, value ? "yes" : "no"); }

User::User() : impl_(new UserImpl) {}
User::~User() = default;  // here, where UserImpl is complete
bool User::Exists() const { return impl_->Exists(); }
std::string User::GetAccountHost() const { return impl_->GetAccountHost(); }
std::string User::GetIdentityHost() const { return impl_->GetIdentityHost(); }
std::string User::GetEmail() const { return impl_->GetEmail(); }
std::string User::GetUserId() const { return impl_->GetUserId(); }
std::string User::GetAuthKey() const { return impl_->GetAuthKey(); }
std::string User::GetName() const { return impl_->GetName(); }
std::string User::GetCountry() const { return impl_->GetCountry(); }
std::string User::GetTimezone() const { return impl_->GetTimezone(); }
std::string User::GetNotifyLanguage() const { return impl_->GetNotifyLanguage(); }
std::string User::GetCriticalVersionList() const { return impl_->GetCriticalVersionList(); }
std::string User::GetCriticalVersionDomain() const { return impl_->GetCriticalVersionDomain(); }
std::string User::GetReportCronTimestring() const { return impl_->GetReportCronTimestring(); }
std::int64_t User::GetLastQueryTime() const { return impl_->GetLastQueryTime(); }
bool User::GetIsActivated() const { return impl_->GetIsActivated(); }
bool User::GetIsDisabled() const { return impl_->GetIsDisabled(); }
bool User::GetIsEnews() const { return impl_->GetIsEnews(); }
bool User::GetIsCriticalRelease() const { return impl_->GetIsCriticalRelease(); }
bool User::GetIsEnewsLocalPromotion() const { return impl_->GetIsEnewsLocalPromotion(); }
bool User::GetIsRealnameValidationPass() const { return impl_->GetIsRealnameValidationPass(); }
void User::SetAccountHost(const std::string& value) const { impl_->SetAccountHost(value); }
void User::SetIdentityHost(const std::string& value) const { impl_->SetIdentityHost(value); }
void User::SetEmail(const std::string& value) const { impl_->SetEmail(value); }
void User::SetUserId(const std::string& value) const { impl_->SetUserId(value); }
void User::SetAuthKey(const std::string& value) const { impl_->SetAuthKey(value); }
void User::SetName(const std::string& value) const { impl_->SetName(value); }
void User::SetCountry(const std::string& value) const { impl_->SetCountry(value); }
void User::SetTimezone(const std::string& value) const { impl_->SetTimezone(value); }
void User::SetNotifyLanguage(const std::string& value) const { impl_->SetNotifyLanguage(value); }
void User::SetCriticalVersionList(const std::string& value) const { impl_->SetCriticalVersionList(value); }
void User::SetCriticalVersionDomain(const std::string& value) const { impl_->SetCriticalVersionDomain(value); }
void User::SetReportCronTimestring(const std::string& value) const { impl_->SetReportCronTimestring(value); }
void User::SetLastQueryTime(std::int64_t value) const { impl_->SetLastQueryTime(value); }
void User::SetIsActivated(bool value) const { impl_->SetIsActivated(value); }
void User::SetIsDisabled(bool value) const { impl_->SetIsDisabled(value); }
void User::SetIsEnews(bool value) const { impl_->SetIsEnews(value); }
void User::SetIsCriticalRelease(bool value) const { impl_->SetIsCriticalRelease(value); }
void User::SetIsEnewsLocalPromotion(bool value) const { impl_->SetIsEnewsLocalPromotion(value); }
void User::SetIsRealnameValidationPass(bool value) const { impl_->SetIsRealnameValidationPass(value); }

}  // namespace varnkivo
