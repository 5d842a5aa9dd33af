// Keeps the history file: one JSON document, 0600 and the account service's own, replaced as a whole. Touches nothing
// else. The lock is on a file beside it: the history itself is another file after each change, and the folder can be
// opened, and so be locked, by everybody. The new file's name is fixed, so that what a killed process leaves is cleared
// by the next one.
#include "history.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <varnkivo/varnkivo.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <system_error>

#include "descriptor.h"
#include "device_files.h"
#include "output.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kFolder[] = "/usr/varn/var/lib/varnkivo";
constexpr char kName[] = "history.json";
constexpr char kNewName[] = "history.json.new";
constexpr char kLockName[] = "history.lock";
constexpr std::size_t kLongest = 65536;
constexpr std::chrono::seconds kPatience(5);

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

/// Empty where there is no regular file, or one that is too long to be ours.
std::string ReadWhole() {
  const Descriptor file(open(kHistoryPath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (file.Get() < 0 || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode)) return "";
  std::string text(kLongest, '\0');
  std::size_t length = 0;
  for (ssize_t got = 0; length < text.size(); length += static_cast<std::size_t>(got)) {
    got = read(file.Get(), text.data() + length, text.size() - length);
    if (got <= 0) break;
  }
  text.resize(length < kLongest ? length : 0);
  return text;
}

std::int64_t Number(const Json::Value& value) { return value.isInt64() ? value.asInt64() : 0; }
int Code(const Json::Value& value) { return value.isInt() ? value.asInt() : 0; }
bool Flag(const Json::Value& value) { return value.isBool() && value.asBool(); }

/// An object in any case, so that a file of another shape reads as one without members.
Json::Value Object(const Json::Value& parent, const char* name) {
  const Json::Value value = parent.isObject() ? parent[name] : Json::Value();
  return value.isObject() ? value : Json::Value(Json::objectValue);
}

History FromJson(const Json::Value& document) {
  const Json::Value report = Object(document, "last_report"), out = Object(document, "last_forced_sign_out");
  const Json::Value own = Object(document, "last_sign_out");
  const std::string email = out["email"].isString() ? out["email"].asString() : "";
  return {{Number(report["ended_epoch"]), Flag(report["accepted"]), Code(report["library_code"])},
          {Number(out["noticed_epoch"]), Code(out["library_code"]), email, Flag(out["current"])},
          {Number(own["ended_epoch"]), Number(own["count"])}};
}

Json::Value OwnSignOutJson(const OwnSignOut& signOut) {
  Json::Value out(Json::objectValue);
  SetTime(out, "ended", signOut.time);
  out["count"] = static_cast<Json::Int64>(signOut.count);
  return out;
}

/// The file stays this process's in a user namespace that does not know the account service.
void GiveToService(int file) {
  if (fchown(file, kAccountId, kAccountId) != 0 && errno != EINVAL) Fail("set the owner");
}

/// Gives a new lock its mode and owner. The folder is the account service's: what it may have put in the lock's place,
/// somebody else's file among it, gets neither.
void Claim(int lock) {
  struct stat facts {};
  if (fstat(lock, &facts) != 0) Fail("look at the lock");
  errno = EINVAL;
  if (!S_ISREG(facts.st_mode) || facts.st_nlink != 1 || facts.st_size != 0) Fail("no lock of this tool");
  if ((facts.st_mode & 07777) != 0600 && fchmod(lock, 0600) != 0) Fail("set the lock's mode");
  const bool theirs = facts.st_uid == kAccountId && facts.st_gid == kAccountId;
  if (!theirs) GiveToService(lock);
}

void Lock(int lock) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (flock(lock, LOCK_EX | LOCK_NB) != 0) {
    if ((errno != EWOULDBLOCK && errno != EINTR) || std::chrono::steady_clock::now() > end) Fail("lock");
    usleep(20000);
  }
}

void WriteAll(int file, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t wrote = write(file, text.data() + done, text.size() - done);
    if (wrote < 0 && errno != EINTR) Fail("write");
    if (wrote > 0) done += static_cast<std::size_t>(wrote);
  }
}

void Replace(int folder, const std::string& text) {
  if (unlinkat(folder, kNewName, 0) != 0 && errno != ENOENT) Fail("clear");
  const Descriptor file(openat(folder, kNewName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (file.Get() < 0) Fail("create");
  if (fchmod(file.Get(), 0600) != 0) Fail("set the mode");  // whatever the umask
  GiveToService(file.Get());
  WriteAll(file.Get(), text);
  if (fsync(file.Get()) != 0) Fail("flush");
  if (renameat(folder, kNewName, folder, kName) != 0) Fail("rename");
  if (fsync(folder) != 0) Fail("flush the folder");
}

void Change(const std::function<void(History&)>& change) {
  const Descriptor folder(open(kFolder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder.Get() < 0) Fail("open the folder");
  const Descriptor lock(
      openat(folder.Get(), kLockName, O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
  if (lock.Get() < 0) Fail("open the lock");
  Claim(lock.Get());
  Lock(lock.Get());
  History history = ReadHistory();
  change(history);
  Json::Value document = NewDocument();
  document["last_report"] = ReportJson(history.report);
  document["last_forced_sign_out"] = SignOutJson(history.signOut);
  document["last_sign_out"] = OwnSignOutJson(history.ownSignOut);
  Replace(folder.Get(), OneLine(document) + "\n");
}

}  // namespace

History ReadHistory() {
  const std::string text = ReadWhole();
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value document;
  try {
    const bool whole = reader->parse(text.data(), text.data() + text.size(), &document, nullptr);
    return whole ? FromJson(document) : History();
  } catch (const Json::Exception&) {  // nested too deeply
    return {};
  }
}

void ChangeHistory(const std::function<void(History&)>& change, Voice voice) noexcept {
  try {
    Change(change);
  } catch (const std::exception& error) {
    if (voice == Voice::kStderr)
      std::fprintf(stderr, "varnkivo: %s could not be written: %s\n", kHistoryPath, error.what());
    else
      syslog(LOG_ERR, "history:%d Failed to write %s: %s", __LINE__, kHistoryPath, error.what());
  }
}

Beginning Begin(const std::string& again) {
  const OwnSignOut ownSignOut =
      ReadHistory().ownSignOut;  // first: one that comes between the two has emptied the record
  return {ReadAccountState(again), ownSignOut};
}

SignOut NoticeSignOut(const Beginning& before, int code, bool forcing, Voice voice) {
  if (before.account.signIn != SignIn::kSignedIn || ReadAccountState().signIn == SignIn::kSignedIn)
    return SignOut::kNone;
  if (!forcing || !(ReadHistory().ownSignOut == before.ownSignOut)) return SignOut::kOther;
  SignOut result = SignOut::kForced;
  const auto note = [&](History& history) {
    if (history.ownSignOut == before.ownSignOut)
      history.signOut = {std::time(nullptr), code, before.account.email, true};
    else
      result = SignOut::kOther;  // it was written while this process waited for its turn
  };
  ChangeHistory(note, voice);
  return result;
}

void EndSignOutNotice(Voice voice) noexcept {
  if (ReadHistory().signOut.current) ChangeHistory([](History& history) { history.signOut.current = false; }, voice);
}

void NoteOwnSignOut(const History& before, Voice voice) noexcept {
  const auto note = [&](History& history) {
    history.signOut = before.signOut;
    history.signOut.current = false;
    history.ownSignOut = {std::time(nullptr), history.ownSignOut.count + 1};
  };
  ChangeHistory(note, voice);
}

Json::Value ReportJson(const LastReport& report) {
  const bool known = report.time > 0;
  Json::Value out(Json::objectValue);
  SetTime(out, "ended", report.time);
  out["accepted"] = known ? Json::Value(report.accepted) : Json::Value();
  out["library_code"] = known ? Json::Value(report.code) : Json::Value();
  return out;
}

Json::Value SignOutJson(const ForcedSignOut& signOut) {
  const bool known = signOut.time > 0;
  Json::Value out(Json::objectValue);
  SetTime(out, "noticed", signOut.time);
  out["library_code"] = known ? Json::Value(signOut.code) : Json::Value();
  out["email"] = known ? TextOrNull(signOut.email) : Json::Value();
  out["current"] = known && signOut.current;
  return out;
}

const char* SignOutReason(int code) {
  switch (code) {
    case KIVO_ERR_ACCOUNT_NOT_FOUND:
      return "the account no longer exists";
    case KIVO_ERR_TOKEN:
      return "it refused to renew the device's token";
    default:
      return "it no longer accepts the sign-in of this device";
  }
}

}  // namespace kivotool
