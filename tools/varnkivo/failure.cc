// Finds the words for a failure. No state. A cause names what happened, never a secret.
#include "failure.h"

#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <algorithm>
#include <utility>

#include "device_files.h"
#include "lock_file.h"

namespace kivotool {
namespace {

using Doing = Situation::Doing;

constexpr char kAnyLogin[] = "varnkivo login";
constexpr char kLog[] = "grep varnkivo /var/log/syslog";
constexpr char kJournal[] = "journalctl -t varnkivo";
constexpr std::int64_t kLockSeconds = 30;  // the library waits so long, and not less, for another process
constexpr char kQueryLock[] = "/tmp/account_query_info.lock";  // a query has no text that would name it
constexpr char kNothingChanged[] = "Nothing; what was stored before is unchanged.";

struct Words {
  int code;
  Retry retry;
  const char* cause;
  const char* deviceNext;  // null: as the operation left it
  const char* run;         // null: the same command again
};

constexpr Words kWords[] = {
    {KIVO_ERR_BAD_PARAM, Retry::kNo, "A value was refused as empty or malformed.", nullptr, "varnkivo --help"},
    {KIVO_ERR_BAD_JSON, Retry::kPerhaps, "The answer was not one of the account centre's: not JSON.", nullptr, kLog},
    {KIVO_ERR_NO_ACCOUNT, Retry::kNo, "Nobody is signed in on this device.",
     "Nothing until someone signs in; it reports nothing and asks nobody.", kAnyLogin},
    {KIVO_ERR_SEND, Retry::kYes,
     "The account centre could not be reached, or was not able to answer; the system log says why.", nullptr, nullptr},
    {KIVO_ERR_RESPONSE, Retry::kYes, "The account centre's answer was incomplete.", nullptr, nullptr},
    {KIVO_ERR_SYSTEM, Retry::kNo, "The account record is out of reach for this user, or the system ran out of memory.",
     nullptr, nullptr},
    {KIVO_ERR_SERIAL, Retry::kNo, "The device's serial number could not be read.", nullptr, "varnkivo paths"},
    {KIVO_ERR_AUTH, Retry::kNo, "The account centre refused this e-mail and password.", nullptr, nullptr},
    {KIVO_ERR_NETWORK, Retry::kYes,
     "The network failed between the device and the account centre; the system log says how.", nullptr, nullptr},
    {KIVO_ERR_ACCOUNT_IN_USE, Retry::kNo, "An account with this e-mail address exists already.", nullptr, kAnyLogin},
    {KIVO_ERR_ACCOUNT_LIMIT, Retry::kPerhaps,
     "This device has registered as many accounts as the account centre allows.", nullptr, kAnyLogin},
    {KIVO_ERR_ACCOUNT_UNVERIFIED, Retry::kPerhaps,
     "The account's e-mail address is not confirmed yet: follow the link in the mail the account centre sent.", nullptr,
     nullptr},
    {KIVO_ERR_CONFIG_WRITE, Retry::kPerhaps, "The account record could not be written (full or read-only disk?).",
     "Nothing; keys written before the failure stay in the record.", "df -h /usr/varn/etc"},
    {KIVO_ERR_MAC, Retry::kNo, "The device's MAC address could not be read.", nullptr, "varnkivo paths"},
    {KIVO_ERR_TOKEN, Retry::kNo, "The device has no usable token.", nullptr, kAnyLogin},
    {KIVO_ERR_SERVER_CONFIG, Retry::kNo, "The device's server hosts could not be read.", nullptr, kLog},
    {KIVO_ERR_UNKNOWN, Retry::kPerhaps,
     "The account centre or the cloud service gave an answer without a known meaning.", nullptr, kLog},
    {KIVO_ERR_ACCOUNT_NOT_FOUND, Retry::kNo, "The account centre knows no account with this e-mail address.", nullptr,
     nullptr},
    {KIVO_ERR_APIKEY_NOT_FOUND, Retry::kPerhaps,
     "The account centre does not know the device's API key, and a new one was not accepted either.",
     "It makes itself a new API key at each sign-in that is answered so.", nullptr},
    {KIVO_ERR_APIKEY_EXPIRED, Retry::kPerhaps, "The device's API key has expired.",
     "The cloud service has been asked to renew the key.", nullptr},
    {KIVO_ERR_INVALID_MACHINE, Retry::kNo,
     "The account centre does not accept this device (serial number, MAC address).", nullptr, "varnkivo paths"},
};

const char* NextByDefault(Doing doing) {
  switch (doing) {
    case Doing::kReadingRecord:
      return "Nothing; the record was not touched.";
    case Doing::kPasswordLogin:
      return "Nothing; who was signed in before still is, and it does not try again by itself.";
    case Doing::kKeyLogin:
      return kNothingChanged;
    case Doing::kQuery:
      return "It keeps the stored profile, and asks again when that is a day old and somebody needs it.";
    case Doing::kBrowserLogin:
      return kNothingChanged;
    case Doing::kToken:
    case Doing::kPackageToken:
      return "It keeps what it has, and tries again when the next program asks for a token.";
    case Doing::kLogout:
      return "Nothing; it stays signed in, and no file was removed.";
    case Doing::kReport:
      return "It reports again at the next time of its schedule.";
    case Doing::kRegister:
      return "Nothing; registering changes nothing on the device.";
    case Doing::kChange:
    case Doing::kChangeWithPassword:
      return "Nothing; it keeps the stored profile, and stays signed in.";
    case Doing::kShop:
    case Doing::kShopLogin:
      return "Nothing; asking the shop changes nothing on the device.";
  }
  return kNothingChanged;
}

/// The library has one code for a user who must not see the record and for a system without memory.
bool RecordIsForOthers() { return geteuid() != 0 && geteuid() != kAccountId; }

/// Whom the record is out of reach for needs other rights for the same command.
std::string RunOf(const Words& words, const Situation& situation) {
  if (words.code == KIVO_ERR_SYSTEM) return "sudo " + (situation.again.empty() ? "varnkivo status" : situation.again);
  return words.run ? words.run : situation.again;
}

Failure FromWords(const Words& words, const Situation& situation) {
  return {ExitFromLibrary(words.code, situation.text, Caller::kOther),
          words.code,
          words.cause,
          words.retry,
          words.deviceNext ? words.deviceNext : NextByDefault(situation.doing),
          RunOf(words, situation)};
}

/// The library has one answer for a lock that is held and for a lock file that is of no use to it.
Failure Busy(int code, const Situation& situation) {
  const std::string path = situation.doing == Doing::kQuery ? kQueryLock : LockFileIn(situation.text);
  LockTrouble trouble = path.empty() ? LockTrouble() : LookAtLockFile(path);
  if (trouble.cause.empty() && !path.empty() && situation.seconds >= 0 && situation.seconds < kLockSeconds)
    trouble.cause = "The lock file " + path + " could not be used, though nobody holds it (out of file descriptors?).";
  if (!trouble.cause.empty())
    return {kBusy,
            code,
            trouble.cause,
            Retry::kNo,
            "Nothing was changed; it goes on when an administrator has put the lock file right.",
            trouble.run};
  return {kBusy,
          code,
          "Another process has been working on the account for more than 30 seconds.",
          Retry::kYes,
          "Nothing was changed; the lock is freed when the other process is done.",
          situation.again};
}

bool IsReportOrChange(Doing doing) {
  return doing == Doing::kReport || doing == Doing::kRegister || doing == Doing::kChange ||
         doing == Doing::kChangeWithPassword;
}

/// What a refusal means to a report and to changes of the account, and to a request for a new one.
void SharpenRefusal(Failure& failure, int code, const Situation& situation) {
  if (code == KIVO_ERR_ACCOUNT_NOT_FOUND) {
    failure.cause = "The account no longer exists at the account centre.";
    failure.run = kAnyLogin;
  } else if (situation.doing == Doing::kRegister) {
    failure.cause = "The account centre does not accept this device's token.";
    failure.run = "varnkivo paths";
  } else if (situation.doing == Doing::kChangeWithPassword) {
    failure.cause =
        "The account centre refused: the current password is wrong, or it no longer accepts this device's sign-in.";
  } else {
    failure.cause = "The account centre no longer accepts this device's sign-in.";
    failure.run = situation.doing == Doing::kReport ? kAnyLogin : "varnkivo account show --refresh";
  }
}

/// Of a report nothing comes from the command line, of a registration everything.
void SharpenMalformed(Failure& failure, const Situation& situation) {
  if (situation.doing == Doing::kRegister) failure.run = "varnkivo account register --help";
  if (situation.doing == Doing::kChange) failure.run = "varnkivo account set --help";
  if (situation.doing != Doing::kReport) return;
  failure.cause = "The account centre refused what the report says of this device as malformed.";
  failure.run = "varnkivo report --dry-run";
}

/// The time zone is the one step that leaves no code of its own.
void SharpenReportOrChange(Failure& failure, int code, const Situation& situation) {
  if (code == KIVO_ERR_BAD_PARAM) SharpenMalformed(failure, situation);
  if (code == KIVO_ERR_AUTH || code == KIVO_ERR_ACCOUNT_NOT_FOUND) SharpenRefusal(failure, code, situation);
  if (code == KIVO_ERR_SUCCESS) failure.cause = "The device's time zone could not be read.";
  if (code == KIVO_ERR_TOKEN) failure.cause = "The device token could not be made.";
  if (code == KIVO_ERR_TOKEN) failure.run = kLog;
  if (code == KIVO_ERR_SYSTEM) {
    failure.cause =
        "Memory ran out, the time zone is unknown, or the account centre reported a fault of its own (\"badsys\").";
    failure.retry = Retry::kPerhaps;
    failure.run = kLog;
  }
  if (code == KIVO_ERR_ACCOUNT_IN_USE && situation.doing == Doing::kChangeWithPassword) failure.run = situation.again;
}

/// Whether the account centre itself answered 404, which says that it does not know the package. Only the beginning of
/// the text is the library's own: an answer is quoted behind it, and another host's 404 says nothing of the name.
bool IsUnknownPackage(const std::string& text) {
  const std::pair<std::string, std::string> beginnings[] = {{"Failed to retrieve pacakge[", "] pkce config, code=404,"},
                                                            {"Failed to grant pacakge[", "], code=404,"}};
  const std::size_t close = text.find(']');
  for (const auto& [before, behind] : beginnings)
    if (close != std::string::npos && text.rfind(before, 0) == 0 && text.compare(close, behind.size(), behind) == 0)
      return true;
  return false;
}

/// Whether no answer came at all. As above, only the beginning is the library's own.
bool IsUnreached(const std::string& text) {
  const std::string beginnings[] = {"Failed to retrieve pacakge[",
                                    "Failed to grant pacakge[",
                                    "Failed to exchange token, reqcode=",
                                    "Failed to renew token, reqcode=",
                                    "Failed to grant by authkey, reqcode=",
                                    "Failed to exchange authkey, reqcode=",
                                    "Failed to logout, reqcode="};
  for (const std::string& before : beginnings) {
    if (text.rfind(before, 0) != 0) continue;
    const std::string behind = "], reqcode=";
    return before.back() == '=' || text.compare(std::min(text.find(']'), text.size()), behind.size(), behind) == 0;
  }
  return false;
}

/// What libcurl said, between the library's own words.
std::string ReasonIn(const std::string& text) {
  const std::string before = "reqmsg=";
  const std::size_t begin = std::min(text.find(before), text.size() - before.size()) + before.size();
  return text.substr(begin, text.find(" [code=", begin) - begin);
}

void SharpenToken(Failure& failure, int code, const Situation& situation) {
  if (code == KIVO_ERR_RESPONSE && IsUnreached(situation.text))
    failure.cause = "The account centre could not be reached: " + ReasonIn(situation.text) + ".";
  if (code != KIVO_ERR_AUTH || situation.doing != Doing::kToken) return;
  failure.cause = "The account centre no longer accepts this device's sign-in.";
  failure.run = kAnyLogin;
}

void SharpenPackage(Failure& failure, int code, const Situation& situation) {
  SharpenToken(failure, code, situation);
  if (code == KIVO_ERR_AUTH) failure.cause = "The account centre refuses to renew the package's token.";
  if (code == KIVO_ERR_BAD_JSON) {
    failure.cause = "The account centre's answer was not JSON, or what it brought could not be stored (full disk?).";
    failure.run = "df -h /usr/varn/etc /tmp";
  }
  if (code != KIVO_ERR_RESPONSE || !IsUnknownPackage(situation.text)) return;
  failure.cause = "The account centre knows no package of this name.";
  failure.retry = Retry::kNo;
  failure.run = "varnkivo packages";
}

/// The shop is another host than the account centre, and knows other things.
void SharpenShop(Failure& failure, int code, const Situation& situation) {
  const bool login = situation.doing == Doing::kShopLogin, answered = !situation.serverAnswer.empty();
  if ((code == KIVO_ERR_AUTH || code == KIVO_ERR_ACCOUNT_NOT_FOUND) && !login) failure.run = kAnyLogin;
  if (code == KIVO_ERR_UNKNOWN && answered)
    failure.cause =
        "The shop gave an answer without a known meaning: \"" + situation.serverAnswer.substr(0, 64) + "\".";
  const struct {
    int code;
    const char* cause;
  } words[] = {{KIVO_ERR_AUTH, login ? "The shop refused this e-mail and password."
                                     : "The shop does not accept this device's sign-in."},
               {KIVO_ERR_ACCOUNT_NOT_FOUND, "The shop knows no such account."},
               {KIVO_ERR_BAD_PARAM, "The shop does not know what was asked for."},
               {KIVO_ERR_BAD_JSON, "The shop's answer was not JSON."},
               {KIVO_ERR_RESPONSE, "The shop's answer was incomplete, or of the wrong types."},
               {KIVO_ERR_SEND, "The shop could not be reached, or was not able to answer; the system log says why."},
               {KIVO_ERR_PAYMENT_CONFIG, "The shop's address could not be read."},
               {KIVO_ERR_SYSTEM, answered ? "The shop reported a fault of its own (\"badsys\")."
                                          : "Memory ran out, or the shop reported a fault of its own (\"badsys\")."}};
  for (const auto& row : words)
    if (row.code == code) failure.cause = row.cause;
  if (code == KIVO_ERR_BAD_PARAM) failure.run = "varnkivo shop items";
  if (code == KIVO_ERR_SYSTEM) failure.retry = Retry::kPerhaps, failure.run = kLog;
}

/// The same library code can mean more than one thing; here is what the situation tells apart.
void Sharpen(Failure& failure, int code, const Situation& situation) {
  if (IsReportOrChange(situation.doing)) {
    SharpenReportOrChange(failure, code, situation);
  } else if (situation.doing == Doing::kPackageToken) {
    SharpenPackage(failure, code, situation);
  } else if (situation.doing == Doing::kToken || situation.doing == Doing::kLogout) {
    SharpenToken(failure, code, situation);
  } else if (situation.doing == Doing::kShop || situation.doing == Doing::kShopLogin) {
    SharpenShop(failure, code, situation);
  } else if (code == KIVO_ERR_SYSTEM && situation.serverAnswer.rfind("badsys", 0) == 0) {
    failure.cause = "The account centre reported a fault of its own (\"badsys\").";
    failure.retry = Retry::kYes;
    failure.run = situation.again;
  } else if (code == KIVO_ERR_SYSTEM && RecordIsForOthers()) {
    failure.cause = "The account record is out of reach for this user.";
  } else if (code == KIVO_ERR_AUTH && situation.doing == Doing::kKeyLogin) {
    failure.cause =
        "The account could not be queried with this key: it was refused, or the account centre is unreachable.";
    failure.retry = Retry::kPerhaps;
    failure.deviceNext = "Nothing; the account record has been removed, so that nobody is signed in now.";
  } else if (code == KIVO_ERR_NO_ACCOUNT && situation.doing == Doing::kQuery) {
    failure.cause = "The account centre no longer accepts this device's sign-in.";
    failure.deviceNext = "It has removed the account record and stays signed out until someone signs in.";
  }
}

}  // namespace

Failure UsageFailure(std::string cause, std::string run) {
  return {kUsage,        std::nullopt, std::move(cause), Retry::kNo, "Nothing; the command was not carried out.",
          std::move(run)};
}

Failure NotSignedInFailure() { return Explain(KIVO_ERR_NO_ACCOUNT, {}); }

Failure SignedOutMeanwhileFailure() {
  Failure failure = NotSignedInFailure();
  failure.cause = "Somebody signed this device out in the meantime.";
  return failure;
}

namespace {

Failure InWords(int code, const Situation& situation) {
  const Caller caller = situation.doing == Doing::kQuery ? Caller::kQuery : Caller::kOther;
  if (ExitFromLibrary(code, situation.text, caller) == kBusy) return Busy(code, situation);
  for (const Words& words : kWords) {
    if (words.code != code) continue;
    Failure failure = FromWords(words, situation);
    Sharpen(failure, code, situation);
    return failure;
  }
  Failure failure{ExitFromLibrary(code, situation.text, caller),
                  code,
                  std::string("The operation failed: ") + GetKivoErrorMsg(code) + ".",
                  Retry::kPerhaps,
                  NextByDefault(situation.doing),
                  kLog};
  Sharpen(failure, code, situation);
  return failure;
}

/// Where the library's lines go: into a file, or on a machine without one into the journal.
const char* LogCommand() {
  const bool hasFile = access("/var/log/syslog", F_OK) == 0;
  return !hasFile && access("/run/systemd/journal", F_OK) == 0 ? kJournal : kLog;
}

}  // namespace

Failure Explain(int code, const Situation& situation) {
  Failure failure = InWords(code, situation);
  if (failure.run == kLog) failure.run = LogCommand();
  return failure;
}

}  // namespace kivotool
