// `account password`: gives the signed-in account a new password. Both passwords come by prompt or as two lines of
// standard input. The library asks for the profile afterwards, which can end the sign-in: the record is looked at
// again.
#include <unistd.h>
#include <varnkivo/varnkivo.h>

#include <cstdio>
#include <memory>

#include "account_state.h"
#include "account_verbs.h"
#include "history.h"
#include "output.h"
#include "secrets.h"
#include "spinner.h"
#include "text.h"

namespace kivotool {
namespace {

constexpr char kHelp[] = "varnkivo account password --help";
constexpr char kAgain[] = "varnkivo account password";
constexpr int kSeconds = 3 * 120 + 2 + 30 + 2 * 15 + 1;  // the change, then the query: its lock and two short attempts

struct PasswordOptions {
  bool fromStdin = false, json = false;
};

void ReadPasswords(const PasswordOptions& options, Secret& current, Secret& wanted) {
  if (isatty(STDIN_FILENO)) {
    PromptForSecret("current password", current, kHelp, false);
    PromptForSecret("new password", wanted, kHelp, true);
  } else if (options.fromStdin) {
    ReadSecretFrom(STDIN_FILENO, "the first line of standard input", current, kHelp, true);
    ReadSecretFrom(STDIN_FILENO, "the second line of standard input", wanted, kHelp);
  } else {
    throw UsageFailure("No passwords were given, and there is no terminal to ask for them.", kHelp);
  }
}

/// True when the profile was asked for afterwards and that found no sign-in.
bool Change(const PasswordOptions& options) {
  Secret current, wanted;
  ReadPasswords(options, current, wanted);
  int result = -1, code = 0;
  {
    const Spinner spinner("Changing the password", kSeconds, !options.json, {&current, &wanted});
    VARNKIVOErrSet(KIVO_ERR_SUCCESS);
    result = VARNKIVOAccountSetInfo(nullptr, nullptr, current.c_str(), wanted.c_str(), nullptr, nullptr, nullptr, -1,
                                    -1, -1, nullptr);
    code = VARNKIVOErrGet();
  }
  if (result != 0) throw Explain(code, {Situation::Doing::kChangeWithPassword, kAgain, "", ""});
  return code == KIVO_ERR_NO_ACCOUNT;
}

Exit RunPassword(const PasswordOptions& options) {
  const Beginning beginning = Begin();
  const AccountState& before = beginning.account;
  if (before.signIn != SignIn::kSignedIn) throw NotSignedInFailure();
  const bool queryFoundNobody = Change(options);
  if (NoticeSignOut(beginning, KIVO_ERR_NO_ACCOUNT, queryFoundNobody, VoiceFor(options.json)) == SignOut::kForced) {
    Failure failure = NotSignedInFailure();
    failure.cause = "The password was changed, and then this device's sign-in was refused: it has been signed out.";
    throw failure;
  }
  if (options.json) {
    Json::Value document = NewDocument();
    document["result"] = "changed";
    document["email"] = TextOrNull(before.email);
    PrintDocument(document);
  } else {
    const std::string& who = before.email.empty() ? before.userId : before.email;
    std::printf("Changed the password of %s\n", Printable(who).c_str());
  }
  return kDone;
}

}  // namespace

void AddAccountPassword(Verb account, Invocation& call) {
  auto options = std::make_shared<PasswordOptions>();
  const Verb verb =
      account.AddVerb(call, "password", "Give the signed-in account a new password",
                      "varnkivo account password\n"
                      "  varnkivo account password --password-stdin < /root/passwords   # two lines: old, new");
  verb.Flag("--password-stdin", options->fromStdin, "Read the current password and the new one, a line each");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunPassword(*options); };
  });
}

}  // namespace kivotool
