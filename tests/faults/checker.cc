// The rules. What is random is known by what it is made of; all else is compared with what the operation itself passes
// through and leaves. Of operations these rules know what they do with tokens, and no more.
#include "checker.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "allocations.h"

namespace faults {
namespace {

constexpr mode_t kPrivateFile = S_IFREG | 0600, kPublicFile = S_IFREG | 0644, kLockFile = S_IFREG | 0666;
constexpr uid_t kAccountId = 934;
constexpr std::size_t kMayShow = 10;  // characters of a secret
const std::string kJob = std::string(kCron) + "kivo", kTokenFile = std::string(kPrivate) + "lum_token.json";
const std::string kPackageConfig = "/tmp/account_photos_pkce_client.conf";
constexpr char kSignOut[] = "Failed to rescue by authkey, force logout";

std::string Facts(const File& file) {
  char text[80];
  std::snprintf(text, sizeof text, "%o %u:%u, %zu bytes", file.mode, file.uid, file.gid, file.content.size());
  return text;
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Room for a token set: "lum,RANDOM_token.json".
bool IsNewTokens(const std::string& path) {
  return path.find("lum,") != std::string::npos && EndsWith(path, "_token.json");
}

bool IsTokens(const std::string& path) { return EndsWith(path, "_token.json") && !IsNewTokens(path); }

/// A writer's file that has not got its name yet, or a lock's.
bool IsTemporary(const std::string& name) {
  return name.find(".new") != std::string::npos || name.find(".lock.") != std::string::npos || IsNewTokens(name);
}

bool IsKill(const Injection& injection) { return injection.kind == Kind::kKill || injection.kind == Kind::kKillAfter; }

/// Whether the process was refused memory in what ends it then, as it promises.
bool EndsByPromise(const Outcome& outcome) {
  return outcome.injection.kind == Kind::kMemory && !outcome.told.finished && WIFSIGNALED(outcome.ending.status) &&
         FailedAllocation().find("varnkivo::format<") != std::string::npos;
}

/// Empty, or room that nothing has been written to.
bool SaysNothing(const std::string& content) { return content.find_first_not_of('\0') == std::string::npos; }

bool IsOperationLock(const std::string& path) {
  for (const char* name : {"query_info", "lum_get_token", "lum_renew_token", "lum_exchange_token", "lum_save_token",
                           "photos_get_token", "photos_exchange_token", "photos_save_token", "photos_package_get_token",
                           "photos_package_grant_by_lum", "photos_package_retrieve_config"})
    if (path == std::string("/tmp/account_") + name + ".lock") return true;
  return false;
}

/// Whatever ends so goes with the sign-out.
std::vector<std::string> TokenFilesIn(const std::map<std::string, File>& files) {
  std::vector<std::string> found;
  for (const auto& entry : files)
    if (IsTokens(entry.first) || IsNewTokens(entry.first)) found.push_back(entry.first);
  return found;
}

/// After a removal the keys come in another order.
std::vector<std::string> SortedLines(const std::optional<std::string>& record) {
  std::vector<std::string> lines;
  std::istringstream text(record.value_or("none"));
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  std::sort(lines.begin(), lines.end());
  return lines;
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

void Checker::CheckFault(const Device& device, const Outcome& outcome) {
  const Injection& injection = outcome.injection;
  const Told& told = outcome.told;
  const auto record = device.Record();
  const Files files = device.Files();
  ended_ = IsKill(injection) || EndsByPromise(outcome);
  CheckRecord(record, outcome);
  if (scenario_.tokens == Tokens::kReplaced) CheckReplacedTokens(record, files);
  if (scenario_.tokens == Tokens::kRemoved) CheckRemovedTokens(record, files, outcome);
  CheckFiles(files, injection.kind == Kind::kFail && NameOf(injection.at.call).rfind("unlink", 0) == 0);
  if (ended_) return;
  CheckProcess(outcome.ending, told);
  if (injection.kind == Kind::kMemory && !complaints_.empty()) Complain("memory was refused in " + FailedAllocation());
  if (!told.finished || told.result < 0 || !scenario_.resultTells) return;
  CheckSuccess(record);
  if (scenario_.tokens == Tokens::kReplaced && TokensOf(files) != TokenState::kNew)
    Complain("success, without new tokens");
}

void Checker::CheckRecord(const std::optional<std::string>& record, const Outcome& outcome) {
  const auto& allowed = reference_.records;
  if (record == allowed.front()) {
    left_ = Left::kOld;
  } else if (record == allowed.back()) {
    left_ = Left::kNew;
  } else {
    left_ = Left::kPartway;
    if (std::find(allowed.begin(), allowed.end(), record) != allowed.end()) return;
    const bool failed = !ended_ && outcome.told.finished && (outcome.told.result < 0 || !scenario_.resultTells);
    if (!record && failed && scenario_.loss == Loss::kByFailure) return;
    if (!record && failed && scenario_.loss == Loss::kBySignOut && outcome.log.find(kSignOut) != std::string::npos)
      left_ = Left::kSignedOut;
    else
      Complain("a record that the operation never writes: " + record.value_or("none"));
  }
}

/// The new tokens come before anything of the record, and go with it only.
void Checker::CheckReplacedTokens(const std::optional<std::string>& record, const Files& files) {
  const TokenState tokens = TokensOf(files);
  if (left_ == Left::kSignedOut) {
    for (const std::string& path : TokenFilesIn(files)) Complain("signed out, but there is " + path);
    return;
  }
  if (tokens == TokenState::kAbsent) return Complain("the tokens are gone");
  if (tokens == TokenState::kBroken) return Complain("a broken token file: " + Facts(files.at(kTokenFile)));
  const bool areNew = tokens == TokenState::kNew, mayBeOld = record == reference_.records.front();
  if (!areNew && !mayBeOld) Complain("a changed record with the old tokens");
  left_ = !areNew ? Left::kOld : record == reference_.records.back() ? Left::kNew : Left::kPartway;
}

/// Record, job, tokens: that is the order. One step that fails is logged, and those behind it are taken.
void Checker::CheckRemovedTokens(const std::optional<std::string>& record, const Files& files, const Outcome& outcome) {
  const std::size_t tokens = TokenFilesIn(files).size(), all = TokenFilesIn(before_).size();
  const bool job = files.count(kJob) != 0;
  left_ = record && job && tokens == all ? Left::kOld : !record && !job && tokens == 0 ? Left::kNew : Left::kPartway;
  const bool inOrder = (!record || job) && (!job || tokens == all);
  const int undone = (record ? 1 : 0) + (job ? 1 : 0) + (tokens != 0 ? 1 : 0);
  const bool succeeded = !ended_ && outcome.told.finished && outcome.told.result >= 0;
  const bool taken = undone <= 1;
  if (scenario_.resultTells ? !(succeeded ? taken : inOrder) : !taken && !inOrder)
    Complain(std::string("partway, with") + (record ? " record" : "") + (job ? " job" : "") + " and " +
             std::to_string(tokens) + " token files");
  if (succeeded && undone == 1 && outcome.log.find("ailed") == std::string::npos)
    Complain(std::string("nothing is logged of what stays: ") + (record ? "record" : job ? "job" : "token files"));
}

void Checker::CheckProcess(const Ending& ending, const Told& told) {
  if (ending.hung) return Complain("it hangs");
  if (!told.finished && WIFSIGNALED(ending.status))
    return Complain("it crashes, signal " + std::to_string(WTERMSIG(ending.status)));
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

void Checker::CheckFiles(const Files& files, bool removalFailed) {
  for (const auto& [path, file] : files) {
    const auto isIn = [&at = path](const std::string& folder) { return at.rfind(folder, 0) == 0; };
    if (isIn(kPrivate)) {
      CheckPrivateFile(path, file, removalFailed);
    } else if (IsOperationLock(path)) {
      if (file.mode != kLockFile || !file.content.empty()) Complain(path + ": " + Facts(file));
    } else if (path == kPackageConfig) {
      if (file.mode != kPublicFile || file.uid != kAccountId || file.content.back() != '\n')
        Complain(path + ": " + Facts(file));
    } else if (ended_ && isIn(kPackageConfig + ".")) {
      continue;  // the next one, which has not got its name: nothing in it is secret
    } else if (path == kJob) {
      if (file.mode != kPublicFile || file.uid != 0 || file.gid != 0 || file.content != reference_.job)
        Complain(path + ": " + Facts(file));
    } else if (!ended_ || !isIn(std::string(kCron) + ".")) {
      Complain("left behind: " + path);
    }
  }
}

void Checker::CheckPrivateFile(const std::string& path, const File& file, bool removalFailed) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const bool isLock = name == ".user.conf.lock" || name == ".api_key.lock";
  // Killed before it could give a file away that has nothing in it yet: no harm is done.
  const bool isNew = ended_ && IsTemporary(name) && file.content.empty();
  if (file.mode != kPrivateFile || ((file.uid != kAccountId || file.gid != kAccountId) && !isNew))
    Complain("not private: " + path + ": " + Facts(file));
  if (name == "user.conf" || IsTokens(name)) return;
  const bool whole = isLock ? file.content.empty() : name == "api_key" && IsKey(file.content);
  const bool mayStay = IsTemporary(name) && (ended_ || (removalFailed && SaysNothing(file.content)));
  if (!whole && !mayStay) Complain("broken or left behind: " + path + ": " + Facts(file));
}

void Checker::CheckRepetition(const Device& device, const Told& told, bool tokensAreGood) {
  if (left_ == Left::kSignedOut) {  // for that, a person is needed
    if (!told.finished || (told.result >= 0 && scenario_.resultTells))
      Complain("signed out, but run again it succeeds");
    return CheckNothingLeft(device);
  }
  if (!told.finished || told.result != reference_.result)
    Complain("run again it fails: " + (told.finished ? std::to_string(told.result) : "crashed or hung"));
  else if (SortedLines(device.Record()) != SortedLines(reference_.records.back()))
    Complain("run again it leaves the record: " + device.Record().value_or("none"));
  const Files files = device.Files();
  if (scenario_.tokens == Tokens::kRemoved) CheckNothingLeft(device);
  if (scenario_.tokens == Tokens::kReplaced && (TokensOf(files) != TokenState::kNew || !tokensAreGood))
    Complain("run again it leaves no good tokens");
  for (const auto& [path, file] : files)
    if (path.rfind(kPrivate, 0) == 0 && IsTemporary(path) && !IsNewTokens(path) && !file.content.empty())
      Complain("still there after a second run: " + path + ": " + Facts(file));
}

bool Checker::LeavesRoom(const Files& files) const {
  const std::vector<std::string> paths = TokenFilesIn(files);
  return std::any_of(paths.begin(), paths.end(), IsNewTokens);
}

void Checker::CheckSignedOut(const Device& device, const Told& told) {
  if (!told.finished || told.result != 0) Complain("it cannot be signed out");
  CheckNothingLeft(device);
}

void Checker::CheckNothingLeft(const Device& device) {
  const Files files = device.Files();
  if (device.Record()) Complain("signed out, but there is a record");
  if (files.count(kJob) != 0) Complain("signed out, but there is a report job");
  for (const std::string& path : TokenFilesIn(files)) Complain("signed out, but there is " + path);
}

TokenState Checker::TokensOf(const Files& files) const {
  const auto content = [](const Files& all) {
    const auto found = all.find(kTokenFile);
    return found == all.end() ? std::nullopt : std::optional<std::string>(found->second.content);
  };
  return StateOf(content(files), content(before_));
}

void Checker::CheckLog(const std::string& log, const Device& device, std::vector<std::string> secrets) {
  for (const std::string& secret : Secrets()) secrets.push_back(secret);
  for (const Files& files : {before_, device.Files()}) {
    for (const auto& [path, file] : files) {
      if (path == kPrivate + std::string("api_key") && IsKey(file.content)) secrets.push_back(file.content);
      for (const std::string& token : TokensIn(IsTokens(path) ? file.content : "")) secrets.push_back(token);
    }
  }
  if (scenario_.tokens != Tokens::kNone) secrets.push_back(FindToken(log));
  for (const std::string& secret : secrets) {
    const std::size_t at = secret.empty() ? std::string::npos : log.find(secret.substr(0, kMayShow + 1));
    if (at != std::string::npos)
      return Complain("a secret in the log: ..." + log.substr(at - std::min<std::size_t>(at, 80), 160));
  }
}

}  // namespace faults
