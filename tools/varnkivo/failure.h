// What the tool has to say when something did not work: the cause, whether a retry helps, what the device does next by
// itself, and one command to run. Verbs throw it; main prints it, as text or as the JSON error object, on stderr.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "exit_codes.h"

namespace kivotool {

enum class Retry { kNo, kYes, kPerhaps };

struct Failure {
  Exit exit = kFailed;
  std::optional<int> libraryCode;
  std::string cause;
  Retry retry = Retry::kNo;
  std::string deviceNext;
  std::string run;
};

/// A mistake on the command line.
Failure UsageFailure(std::string cause, std::string run);
/// Nobody is signed in, or only half the record is there.
Failure NotSignedInFailure();
/// Somebody signed this device out while it was at work.
Failure SignedOutMeanwhileFailure();

/// What was going on when a library call failed.
struct Situation {
  enum class Doing {
    kReadingRecord,
    kPasswordLogin,
    kKeyLogin,
    kBrowserLogin,
    kQuery,
    kToken,
    kPackageToken,
    kLogout,
    kReport,
    kRegister,
    kChange,              ///< of the account, without its password
    kChangeWithPassword,  ///< of e-mail address or password
    kShop,
    kShopLogin,
  };
  Doing doing = Doing::kReadingRecord;
  std::string again;          ///< the command line that repeats the operation
  std::string text;           ///< of the exception, if there was one
  std::string serverAnswer;   ///< the "code" of the account centre's reply, if there was one
  std::int64_t seconds = -1;  ///< that the call took; -1: not known
};

/// The words for library code `code`.
Failure Explain(int code, const Situation& situation);

/// Writes `failure` to stderr: four lines, or one JSON object.
void Report(const Failure& failure, bool json);
/// `failure` as the JSON object, on one line.
std::string ToJsonLine(const Failure& failure);

}  // namespace kivotool
