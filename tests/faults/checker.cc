// The rules. Nothing here knows an operation: records are compared with those that the operation itself passes through,
// a job with the one it leaves.
#include "checker.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>

#include "allocations.h"

namespace faults {
namespace {

constexpr mode_t kPrivateFile = S_IFREG | 0600, kPublicFile = S_IFREG | 0644, kLockFile = S_IFREG | 0666;
constexpr uid_t kAccountId = 934;

std::string Facts(const File& file) {
  char text[80];
  std::snprintf(text, sizeof text, "%o %u:%u, %zu bytes", file.mode, file.uid, file.gid, file.content.size());
  return text;
}

/// A writer's file that has not got its name yet, or a lock's.
bool IsTemporary(const std::string& name) {
  return name.find(".new") != std::string::npos || name.find(".lock.") != std::string::npos;
}

bool IsKey(const std::string& text) {
  return text.size() == 65 && text.find_first_not_of("0123456789abcdef") == 64 && text[64] == '\n';
}

/// The line of `key` in a record.
std::string Line(const std::string& record, const std::string& key) {
  const std::size_t at = ("\n" + record).find("\n" + key + "=");
  return at == std::string::npos ? key + "=?" : record.substr(at, record.find('\n', at) - at + 1);
}

}  // namespace

void Checker::CheckFault(const Device& device, const Injection& injection, const Ending& ending, const Told& told) {
  const bool killed = injection.kind == Kind::kKill || injection.kind == Kind::kKillAfter;
  const auto record = device.Record();
  const auto& allowed = reference_.records;
  if (record == allowed.front()) {
    left_ = Left::kOld;
  } else if (record == allowed.back()) {
    left_ = Left::kNew;
  } else {
    left_ = Left::kPartway;
    if (std::find(allowed.begin(), allowed.end(), record) == allowed.end())
      Complain("a record that the operation never writes: " + record.value_or("none"));
  }
  CheckFiles(device, killed, injection.kind == Kind::kFail && NameOf(injection.at.call).rfind("unlink", 0) == 0);
  if (killed) return;
  CheckProcess(injection, ending, told);
  if (told.finished && told.result >= 0 && scenario_.resultTells) CheckSuccess(record);
}

void Checker::CheckProcess(const Injection& injection, const Ending& ending, const Told& told) {
  if (ending.hung) return Complain("it hangs");
  if (!told.finished && WIFSIGNALED(ending.status)) {
    const std::string place = injection.kind == Kind::kMemory ? FailedAllocation() : "";
    if (place.find("varnkivo::format<") != std::string::npos) return;  // that one promises to end the process
    return Complain("it crashes, signal " + std::to_string(WTERMSIG(ending.status)) + "\n" + place);
  }
  if (!told.finished) return Complain("it ends the process, status " + std::to_string(ending.status));
  if (told.threw) Complain("an exception leaves the function");
  if (told.result != reference_.result && told.result != -1) Complain("the result is " + std::to_string(told.result));
  if (ending.left) Complain("a child is left");
  if (ending.descriptors > reference_.descriptors)
    Complain(std::to_string(ending.descriptors - reference_.descriptors) + " descriptors are left open");
  if ((told.uid != scenario_.uid || told.gid != scenario_.uid) && !ending.keptIds)
    Complain("the effective ids are " + std::to_string(told.uid) + ":" + std::to_string(told.gid));
}

void Checker::CheckSuccess(const std::optional<std::string>& record) {
  const auto& wanted = reference_.records.back();
  if (scenario_.promised.empty() && record != wanted)
    return Complain("success, with the record: " + record.value_or("none"));
  for (const std::string& key : scenario_.promised)
    if (Line(record.value_or(""), key) != Line(wanted.value_or(""), key))
      Complain("success, with the record's line: " + Line(record.value_or(""), key));
}

void Checker::CheckFiles(const Device& device, bool killed, bool removalFailed) {
  for (const auto& [path, file] : device.Files()) {
    const auto isIn = [&at = path](const std::string& folder) { return at.rfind(folder, 0) == 0; };
    if (isIn(kPrivate)) {
      CheckPrivateFile(path, file, killed, removalFailed);
    } else if (path == "/tmp/account_query_info.lock") {
      if (file.mode != kLockFile || !file.content.empty()) Complain(path + ": " + Facts(file));
    } else if (path == std::string(kCron) + "kivo") {
      if (file.mode != kPublicFile || file.uid != 0 || file.gid != 0 || file.content != reference_.job)
        Complain(path + ": " + Facts(file));
    } else if (!killed || !isIn(std::string(kCron) + ".")) {
      Complain("left behind: " + path);
    }
  }
}

void Checker::CheckPrivateFile(const std::string& path, const File& file, bool killed, bool removalFailed) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const bool isLock = name == ".user.conf.lock" || name == ".api_key.lock";
  // Killed before it could give a file away that has nothing in it yet: no harm is done.
  const bool isNew = killed && IsTemporary(name) && file.content.empty();
  if (file.mode != kPrivateFile || ((file.uid != kAccountId || file.gid != kAccountId) && !isNew))
    Complain("not private: " + path + ": " + Facts(file));
  if (name == "user.conf") return;
  const bool whole = isLock ? file.content.empty() : name == "api_key" && IsKey(file.content);
  const bool mayStay = IsTemporary(name) && (killed || (removalFailed && file.content.empty()));
  if (!whole && !mayStay) Complain("broken or left behind: " + path + ": " + Facts(file));
}

void Checker::CheckRepetition(const Device& device, const Told& told) {
  if (!told.finished || told.result != reference_.result)
    Complain("run again it fails: " + (told.finished ? std::to_string(told.result) : "crashed or hung"));
  else if (device.Record() != reference_.records.back())
    Complain("run again it leaves the record: " + device.Record().value_or("none"));
  for (const auto& [path, file] : device.Files())
    if (path.rfind(kPrivate, 0) == 0 && IsTemporary(path) && !file.content.empty())
      Complain("still there after a second run: " + path + ": " + Facts(file));
}

void Checker::CheckLog(const std::string& log, const Device& device) {
  std::vector<std::string> secrets = Secrets();
  for (const auto& [path, file] : device.Files())
    if (path == std::string(kPrivate) + "api_key" && IsKey(file.content)) secrets.push_back(file.content.substr(0, 64));
  for (const std::string& secret : secrets) {
    const std::size_t at = log.find(secret);
    if (at != std::string::npos)
      Complain("a secret in the log: ..." + log.substr(at - std::min<std::size_t>(at, 80), 160));
  }
}

}  // namespace faults
