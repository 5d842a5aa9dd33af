// `login`: signs the device in, by e-mail and password or by an auth key, or only tries a password. The library writes
// the record; afterwards the record is read again, because a sign-in that succeeded may still have no profile, an old
// one, or have been taken back by the query that follows it.
#include <strings.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include "account_state.h"
#include "browser_login.h"
#include "command_line.h"
#include "confirm.h"
#include "failure.h"
#include "history.h"
#include "output.h"
#include "secrets.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr int kQuerySeconds = 30 + 2 * 15 + 1;                       // the lock, then two short attempts
constexpr int kPasswordSeconds = 2 * (3 * 120 + 2) + kQuerySeconds;  // sent twice when a new API key is needed

constexpr int kFreshSeconds = 300;  // a profile younger than this is not asked for again

struct LoginOptions {
  std::string email, userId, secretFile;
  bool key = false, verifyOnly = false, strict = false, yes = false, secretFromStdin = false, json = false;

  std::string Again() const {
    if (Browser()) return "varnkivo login";
    return key ? "varnkivo login --key --user-id " + ShellWord(userId) : "varnkivo login --email " + ShellWord(email);
  }
  bool Browser() const { return !key && email.empty(); }
};

struct Outcome {
  std::string result;  // "signed_in" or "verified"
  std::string email, userId;
  Json::Value activated;  // null: not known
  bool profileIsCurrent = false;
  std::vector<std::string> notes;
};

void CheckOptions(const LoginOptions& options) {
  constexpr char kHelp[] = "varnkivo login --help";
  if (options.key && options.verifyOnly) throw UsageFailure("A key cannot be tried without signing in.", kHelp);
  if (options.key && !options.email.empty()) throw UsageFailure("Give either --key or --email.", kHelp);
  if (!options.key && !options.userId.empty()) throw UsageFailure("--user-id goes with --key.", kHelp);
  if (options.Browser()) {
    const bool secret = options.secretFromStdin || !options.secretFile.empty();
    if (secret || options.verifyOnly) throw UsageFailure("--email is missing.", kHelp);
    return;
  }
  const std::string& name = options.key ? options.userId : options.email;
  if (name.empty()) throw UsageFailure("--user-id is missing.", kHelp);
  if (HasControls(name)) throw UsageFailure("A name cannot hold control characters.", kHelp);
}

bool SameEmail(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

void RefuseIfAlready(const LoginOptions& options, const AccountState& state) {
  if (!options.strict || options.verifyOnly || state.signIn != SignIn::kSignedIn) return;
  if (!options.Browser() && (options.key ? state.userId != options.userId : !SameEmail(state.email, options.email)))
    return;
  throw Failure{
      kAlready,         std::nullopt, "This account is signed in already.", Retry::kNo, "Nothing; it stays signed in.",
      "varnkivo status"};
}

SecretSource SourceFor(const LoginOptions& options) {
  return options.key ? SecretSource{"auth key", "varnkivo.auth_key", options.secretFromStdin, options.secretFile}
                     : SecretSource{"password", "varnkivo.password", options.secretFromStdin, options.secretFile};
}

std::string TextMember(const Json::Value& response, const char* name) {
  const Json::Value value = response.isObject() ? response[name] : Json::Value();
  return value.isConvertibleTo(Json::stringValue) ? value.asString() : "";
}

/// A sign-in can fail after the server's yes: then the record is as it is now, and a plug-in is what failed.
Failure LoginFailure(int code, const LoginOptions& options, const Json::Value& response) {
  Situation situation;
  situation.doing = options.key ? Situation::Doing::kKeyLogin : Situation::Doing::kPasswordLogin;
  situation.again = options.Again();
  situation.serverAnswer = TextMember(response, "code");
  const bool accepted = !situation.serverAnswer.empty() &&
                        GetErrorCodeFromAccountError(situation.serverAnswer.c_str()) == KIVO_ERR_SUCCESS;
  if (accepted && code != KIVO_ERR_SYSTEM && code != KIVO_ERR_CONFIG_WRITE && code != KIVO_ERR_RESPONSE) {
    return {kFailed,
            code,
            "The sign-in was accepted and stored, but a sign-in plug-in failed.",
            Retry::kPerhaps,
            "It is signed in, and reports by its schedule.",
            "varnkivo status"};
  }
  return Explain(code, situation);
}

Json::Value CallLibrary(const LoginOptions& options) {
  Secret secret;
  ReadSecret(SourceFor(options), secret);
  const std::string who = options.key ? "user " + options.userId : options.email;
  Json::Value response;
  int result = -1, code = 0;
  {
    const Spinner spinner((options.verifyOnly ? "Trying the password of " : "Signing in as ") + who,
                          options.key ? kQuerySeconds : kPasswordSeconds, !options.json, {&secret});
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    result = options.key ? VARNKIVOAccountLoginByKey(options.userId.c_str(), secret.c_str(), response)
                         : VARNKIVOAccountLogin(options.email.c_str(), secret.c_str(), response, options.verifyOnly);
    code = VARNKIVOErrGet();
    secret.Wipe();
  }
  if (result != 0) throw LoginFailure(code, options, response);
  return response;
}

Outcome Verified(const LoginOptions& options, const Json::Value& response) {
  return {"verified", options.email, TextMember(response, "id"), Json::Value(), false, {}};
}

/// Why the stored profile is not of this sign-in; empty when there is nothing to say.
std::string ProfileNote(const AccountState& before, const AccountState& state) {
  if (state.email.empty()) return "The profile could not be fetched yet; the next query brings it.";
  if (before.userId != state.userId) {
    return "The stored profile (" + state.email +
           ") is from before this sign-in; "
           "\"varnkivo account show --refresh\" renews it in 5 minutes.";
  }
  const bool fresh = std::llabs(std::time(nullptr) - state.lastQuery) < kFreshSeconds;
  return fresh ? "" : "The profile could not be renewed; the stored one is of " + Rfc3339(state.lastQuery) + ".";
}

/// What the record says now, compared with what it said `before`.
Outcome SignedIn(const LoginOptions& options, const Beginning& beginning) {
  const AccountState& before = beginning.account;
  const AccountState state = ReadAccountState();
  if (state.signIn != SignIn::kSignedIn) {
    NoticeSignOut(beginning, KIVO_ERR_NO_ACCOUNT, true, VoiceFor(options.json));
    throw Failure{kRefused,
                  std::nullopt,
                  "The account centre gave a sign-in and refused it again a moment later.",
                  Retry::kPerhaps,
                  "It has removed the account record and stays signed out.",
                  options.Again()};
  }
  Outcome outcome{"signed_in", state.email, state.userId, Json::Value(), state.lastQuery != before.lastQuery, {}};
  const bool profileIsTheirs = outcome.profileIsCurrent || before.userId == state.userId;
  if (profileIsTheirs && !state.email.empty()) outcome.activated = state.activated;
  if (!profileIsTheirs && !options.key) outcome.email = options.email;
  if (outcome.profileIsCurrent) return outcome;
  if (options.key) outcome.notes.push_back("The key was not checked: the stored profile is less than 5 minutes old.");
  if (std::string note = ProfileNote(before, state); !note.empty()) outcome.notes.push_back(std::move(note));
  return outcome;
}

void Print(const Outcome& outcome, bool json) {
  if (!json) {
    const char* words = outcome.result == "verified" ? "The password is right for" : "Signed in as";
    std::printf("%s %s\n", words, Printable(outcome.email.empty() ? outcome.userId : outcome.email).c_str());
    for (const std::string& note : outcome.notes) std::fprintf(stderr, "varnkivo: %s\n", Printable(note).c_str());
    return;
  }
  Json::Value document = NewDocument();
  document["result"] = outcome.result;
  document["email"] = TextOrNull(outcome.email);
  document["user_id"] = TextOrNull(outcome.userId);
  document["activated"] = outcome.activated;
  document["profile_is_current"] = outcome.profileIsCurrent;
  document["notes"] = Json::Value(Json::arrayValue);
  for (const std::string& note : outcome.notes) document["notes"].append(Utf8(note));
  PrintDocument(document);
}

Exit RunLogin(const LoginOptions& options) {
  CheckOptions(options);
  const Beginning beginning = options.verifyOnly ? Beginning() : Begin();
  const AccountState& before = beginning.account;
  RefuseIfAlready(options, before);
  if (options.key && before.signIn == SignIn::kSignedIn) {
    Confirm("Somebody is signed in (" + (before.email.empty() ? "user " + before.userId : before.email) +
                "); if the key cannot be checked, that sign-in is removed too.",
            options.yes, options.Again() + " --yes");
  }
  Json::Value response;
  if (options.Browser())
    SignInByBrowser(options.json);
  else
    response = CallLibrary(options);
  const Outcome outcome = options.verifyOnly ? Verified(options, response) : SignedIn(options, beginning);
  if (!options.verifyOnly) EndSignOutNotice(VoiceFor(options.json));
  Print(outcome, options.json);
  return kDone;
}

}  // namespace

void AddLogin(Verb app, Invocation& call) {
  auto options = std::make_shared<LoginOptions>();
  const Verb verb =
      app.AddVerb(call, "login", "Sign this device in to an account",
                  "varnkivo login                           # by browser, here or elsewhere\n"
                  "  varnkivo login --email ann@example.com\n"
                  "  varnkivo login --email ann@example.com --password-file /root/kivo.password\n"
                  "  varnkivo login --key --user-id 1001 --auth-key-stdin < /root/kivo.key\n\n"
                  "The secret comes from standard input, a file only its owner can read, the service\n"
                  "manager ($CREDENTIALS_DIRECTORY/varnkivo.password or varnkivo.auth_key), or a prompt.\n"
                  "A key that cannot be checked removes the account that was signed in before.");
  verb.Text("--email", options->email, "E-mail address of the account, to sign in with its password");
  verb.Flag("--key", options->key, "Sign in with a user id and auth key instead of a password");
  verb.Text("--user-id", options->userId, "User id that the auth key belongs to");
  const Option input =
      verb.Flag("--password-stdin,--auth-key-stdin", options->secretFromStdin, "Read the secret from standard input");
  verb.Text("--password-file,--auth-key-file", options->secretFile, "Read the secret from this file").Excludes(input);
  verb.Flag("--verify-only", options->verifyOnly, "Only try the password; nothing on the device changes");
  verb.Flag("--strict", options->strict, "End with 9 when this account is signed in already");
  verb.Flag("--yes", options->yes, "Do not ask before --key puts an existing sign-in at risk");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunLogin(*options); };
  });
}

}  // namespace kivotool
