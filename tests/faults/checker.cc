// The rules. What is random is known by what it is made of; all else is compared with what the operation itself passes
// through and leaves. Of operations these rules know what they do with tokens, and no more. Token files are read here
// on their own: with the library's reader a fault of that one would not show.
#include "checker.h"

#include <json/reader.h>
#include <json/value.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <regex>
#include <set>
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

bool StartsWith(const std::string& text, const std::string& start) { return text.rfind(start, 0) == 0; }
bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string Facts(const std::string& path, const File& file) {
  char text[80];
  std::snprintf(text, sizeof text, ": %o %u:%u, %zu bytes", file.mode, file.uid, file.gid, file.content.size());
  return path + text;
}

/// Room for a token set: "lum,RANDOM_token.json".
bool IsNewTokens(const std::string& path) { return Has(path, "lum,") && EndsWith(path, "_token.json"); }
bool IsTokens(const std::string& path) { return EndsWith(path, "_token.json") && !IsNewTokens(path); }

/// A writer's file that has not got its name yet, or a lock's.
bool IsTemporary(const std::string& name) { return Has(name, ".new") || Has(name, ".lock.") || IsNewTokens(name); }

/// Whether the process was ended on purpose: killed, or refused memory in what ends it then, as it promises.
bool IsEnded(const Outcome& outcome) {
  const Kind kind = outcome.injection.kind;
  return kind == Kind::kKill || kind == Kind::kKillAfter ||
         (kind == Kind::kMemory && !outcome.told.finished && WIFSIGNALED(outcome.ending.status) &&
          Has(FailedAllocation(), "varnkivo::format<"));
}

bool IsOperationLock(const std::string& path) {
  static const std::regex names(
      "/tmp/account_(query_info|lum_(get|renew|exchange|save)_token|photos_(get|exchange|save)_token|"
      "photos_package_(get_token|grant_by_lum|retrieve_config))\\.lock");
  return std::regex_match(path, names);
}

/// Whatever ends so goes with the sign-out.
std::vector<std::string> TokenFilesIn(const State& state) {
  std::vector<std::string> found;
  for (const auto& entry : state.files)
    if (EndsWith(entry.first, "_token.json")) found.push_back(entry.first);
  return found;
}

/// After a removal the keys come in another order.
std::multiset<std::string> LinesOf(const std::optional<std::string>& record) {
  std::multiset<std::string> lines;
  std::istringstream text(record.value_or("none"));
  for (std::string line; std::getline(text, line);) lines.insert(line);
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

Json::Value Parse(const std::string& content) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  const bool parsed = reader->parse(content.data(), content.data() + content.size(), &value, nullptr);
  return parsed && value.isObject() ? value : Json::Value(Json::objectValue);
}

bool IsWholeSet(const std::string& content) {
  const Json::Value set = Parse(content);
  for (const char* name : {"created_at", "expires_in"})
    if (!set[name].isInt() || set[name].asInt() <= 0) return false;
  return TokensIn(content).size() == 3;
}

/// What in `log` looks like more than ten characters of a token, code or verifier, or as a word longer than people's;
/// "" where nothing does.
std::string FindToken(const std::string& log) {
  static const std::regex words("(?:^|[^\\w-])((?:at-|rt-|eyJ)[\\w-]{8,}|code-[\\w-]{6,}|[\\w-]{32,})");
  std::smatch found;
  return std::regex_search(log, found, words) ? found[1].str() : "";
}

}  // namespace

std::vector<std::string> TokensIn(const std::string& content) {
  const Json::Value set = Parse(content);
  std::vector<std::string> tokens;
  for (const char* name : {"access_token", "id_token", "refresh_token"})
    if (set[name].isString() && !set[name].asString().empty()) tokens.push_back(set[name].asString());
  return tokens;
}

void Checker::CheckFault(const State& now, const Outcome& outcome) {
  const Injection& injection = outcome.injection;
  ended_ = IsEnded(outcome);
  succeeded_ = !ended_ && outcome.told.finished && outcome.told.result >= 0;
  failed_ = !ended_ && outcome.told.finished && (outcome.told.result < 0 || !scenario_.resultTells);
  CheckRecord(now, outcome);
  if (scenario_.tokens == Tokens::kReplaced) CheckReplacedTokens(now);
  if (scenario_.tokens == Tokens::kRemoved) CheckRemovedTokens(now, outcome);
  const bool removalFailed = injection.kind == Kind::kFail && StartsWith(FactsOf(injection.at.call, 0).name, "unlink");
  for (const auto& [path, file] : now.files) CheckFile(path, file, removalFailed);
  if (ended_) return;
  CheckProcess(outcome.ending, outcome.told);
  if (injection.kind == Kind::kMemory && !complaints_.empty()) Complain("memory was refused in " + FailedAllocation());
  if (succeeded_ && scenario_.resultTells) CheckSuccess(now);
}

void Checker::CheckRecord(const State& now, const Outcome& outcome) {
  const auto& allowed = reference_.records;
  if (std::find(allowed.begin(), allowed.end(), now.record) != allowed.end()) return;
  const bool lost = !now.record && failed_;
  if (lost && scenario_.loss == Loss::kByFailure) return;
  signedOut_ = lost && scenario_.loss == Loss::kBySignOut && Has(outcome.log, kSignOut);
  if (!signedOut_) Complain("a record that the operation never writes: " + now.record.value_or("none"));
}

bool Checker::HasNewTokens(const State& now) const {
  const auto file = now.files.find(kTokenFile);
  return file != now.files.end() && file->second.content != before_.files.at(kTokenFile).content &&
         IsWholeSet(file->second.content);
}

/// The new tokens come before anything of the record, and go with it only.
void Checker::CheckReplacedTokens(const State& now) {
  if (signedOut_) {
    for (const std::string& path : TokenFilesIn(now)) Complain("signed out, but there is " + path);
    return;
  }
  const auto file = now.files.find(kTokenFile);
  if (file == now.files.end()) return Complain("the tokens are gone");
  const bool areNew = HasNewTokens(now), areOld = file->second.content == before_.files.at(kTokenFile).content;
  if (!areNew && !areOld) return Complain("broken tokens: " + Facts(kTokenFile, file->second));
  if (areOld && now.record != reference_.records.front()) Complain("a changed record with the old tokens");
}

/// Record, job, tokens: that is the order. One step that fails is logged, and those behind it are taken.
void Checker::CheckRemovedTokens(const State& now, const Outcome& outcome) {
  const std::size_t tokens = TokenFilesIn(now).size(), all = TokenFilesIn(before_).size();
  const bool record = now.record.has_value(), job = now.files.count(kJob) != 0;
  const bool inOrder = (!record || job) && (!job || tokens == all);
  const int undone = (record ? 1 : 0) + (job ? 1 : 0) + (tokens != 0 ? 1 : 0);
  const bool taken = undone <= 1;
  if (scenario_.resultTells ? !(succeeded_ ? taken : inOrder) : !taken && !inOrder)
    Complain(std::string("partway, with") + (record ? " record" : "") + (job ? " job" : "") + " and " +
             std::to_string(tokens) + " token files");
  if (succeeded_ && undone == 1 && !Has(outcome.log, "ailed"))
    Complain(std::string("nothing is logged of what stays: ") + (record ? "record" : job ? "job" : "token files"));
}

void Checker::CheckProcess(const Ending& ending, const Told& told) {
  if (ending.hung) return Complain("it hangs");
  if (!told.finished) return Complain("it crashes or ends the process, wait status " + std::to_string(ending.status));
  if (told.threw) Complain("an exception leaves the function");
  if (told.result != reference_.result && told.result != -1) Complain("the result is " + std::to_string(told.result));
  if (ending.left) Complain("a child is left");
  if (ending.descriptors > reference_.descriptors)
    Complain(std::to_string(ending.descriptors - reference_.descriptors) + " descriptors are left open");
  if ((told.uid != scenario_.uid || told.gid != scenario_.uid) && !ending.keptIds)
    Complain("the effective ids are " + std::to_string(told.uid) + ":" + std::to_string(told.gid));
}

void Checker::CheckSuccess(const State& now) {
  const auto& wanted = reference_.records.back();
  if (scenario_.promised.empty() && now.record != wanted)
    Complain("success, with the record: " + now.record.value_or("none"));
  for (const std::string& key : scenario_.promised)
    if (Line(now.record.value_or(""), key) != Line(wanted.value_or(""), key))
      Complain("success, with the record's line: " + Line(now.record.value_or(""), key));
  if (scenario_.tokens == Tokens::kReplaced && !HasNewTokens(now)) Complain("success, without new tokens");
}

void Checker::CheckFile(const std::string& path, const File& file, bool removalFailed) {
  bool good = false;
  if (StartsWith(path, kPrivate))
    return CheckPrivateFile(path, file, removalFailed);
  else if (IsOperationLock(path))
    good = file.mode == kLockFile && file.content.empty();
  else if (path == kPackageConfig)
    good = file.mode == kPublicFile && file.uid == kAccountId && EndsWith(file.content, "\n");
  else if (path == kJob)
    good = file.mode == kPublicFile && file.uid == 0 && file.gid == 0 && file.content == reference_.job;
  else  // the next one, which has not got its name: nothing in it is secret
    good = ended_ && (StartsWith(path, kPackageConfig + ".") || StartsWith(path, std::string(kCron) + "."));
  if (!good) Complain("wrong or left behind: " + Facts(path, file));
}

void Checker::CheckPrivateFile(const std::string& path, const File& file, bool removalFailed) {
  const std::string name = path.substr(path.rfind('/') + 1);
  const bool isLock = name == ".user.conf.lock" || name == ".api_key.lock";
  // Killed before it could give a file away that has nothing in it yet: no harm is done.
  const bool isNew = ended_ && IsTemporary(name) && file.content.empty();
  if (file.mode != kPrivateFile || ((file.uid != kAccountId || file.gid != kAccountId) && !isNew))
    Complain("not private: " + Facts(path, file));
  if (name == "user.conf" || IsTokens(name)) return;
  const bool whole = isLock ? file.content.empty() : name == "api_key" && IsKey(file.content);
  const bool saysNothing = file.content.find_first_not_of('\0') == std::string::npos;  // empty, or room only
  const bool mayStay = IsTemporary(name) && (ended_ || (removalFailed && saysNothing));
  if (!whole && !mayStay) Complain("broken or left behind: " + Facts(path, file));
}

void Checker::CheckRepetition(const State& now, const Told& told, bool tokensAreGood) {
  if (signedOut_) {  // for that, a person is needed
    const bool refused = told.finished && (told.result < 0 || !scenario_.resultTells);
    if (!refused) Complain("signed out, but run again it succeeds");
    return CheckSignedOut(now, {true, false, 0, 0, 0});
  }
  if (!told.finished || told.result != reference_.result)
    Complain("run again it fails: " + (told.finished ? std::to_string(told.result) : "crashed or hung"));
  else if (LinesOf(now.record) != LinesOf(reference_.records.back()))
    Complain("run again it leaves the record: " + now.record.value_or("none"));
  if (scenario_.tokens == Tokens::kRemoved) CheckSignedOut(now, {true, false, 0, 0, 0});
  if (scenario_.tokens == Tokens::kReplaced && (!HasNewTokens(now) || !tokensAreGood))
    Complain("run again it leaves no good tokens");
  for (const auto& [path, file] : now.files)
    if (StartsWith(path, kPrivate) && IsTemporary(path) && !IsNewTokens(path) && !file.content.empty())
      Complain("still there after a second run: " + Facts(path, file));
}

bool Checker::LeavesRoom(const State& now) {
  const std::vector<std::string> paths = TokenFilesIn(now);
  return std::any_of(paths.begin(), paths.end(), IsNewTokens);
}

void Checker::CheckSignedOut(const State& now, const Told& told) {
  if (!told.finished || told.result != 0) Complain("it cannot be signed out");
  if (now.record) Complain("signed out, but there is a record");
  if (now.files.count(kJob) != 0) Complain("signed out, but there is a report job");
  for (const std::string& path : TokenFilesIn(now)) Complain("signed out, but there is " + path);
}

void Checker::CheckLog(const std::string& log, const State& now, std::vector<std::string> secrets) {
  for (const std::string& secret : Secrets()) secrets.push_back(secret);
  for (const State* state : {&before_, &now}) {
    for (const auto& [path, file] : state->files) {
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
