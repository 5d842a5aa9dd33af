// `logout`: signs the device out, with the account centre's knowledge or without. Being signed out already is no error:
// what an interrupted sign-in may have left is cleared all the same.
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include <cstdio>
#include <memory>
#include <typeinfo>

#include "account_state.h"
#include "command_line.h"
#include "confirm.h"
#include "device_files.h"
#include "failure.h"
#include "history.h"
#include "output.h"
#include "spinner.h"
#include "text.h"
#include "token_state.h"

namespace kivotool {
namespace {

constexpr int kSeconds = 30 + 5 * 30;  // the lock, then up to four requests for a token and the sign-out itself

struct LogoutOptions {
  bool local = false, yes = false, strict = false, json = false;

  std::string Again() const { return local ? "varnkivo logout --local" : "varnkivo logout"; }
};

std::string Who(const AccountState& state) { return state.email.empty() ? "user " + state.userId : state.email; }

void Ask(const LogoutOptions& options, const AccountState& state) {
  const std::string consequence =
      options.local ? " The account centre will not be told and still counts this device as signed in." : "";
  Confirm("This signs " + Who(state) + " out of this device; packages lose their tokens." + consequence, options.yes,
          options.Again() + " --yes");
}

Failure LogoutFailure(int code, const std::string& text, const LogoutOptions& options) {
  Failure failure = Explain(code, {Situation::Doing::kLogout, options.Again(), text, ""});
  if (!options.local && (failure.exit == kFailed || failure.exit == kNotSignedIn)) {
    failure.cause = "The account centre could not be told: there is no usable token, or its answer was not understood.";
    failure.run = "varnkivo logout --local";
  }
  if (!options.local && failure.exit == kUnreachable) failure.run = "varnkivo logout  (or, without it: --local)";
  if (!options.local &&
      failure.exit == kRefused) {  // it may be that an earlier sign-out was cut off after the server's yes
    failure.cause = "The account centre does not know this device's sign-in, or no longer.";
    failure.run = "varnkivo logout --local";
  }
  return failure;
}

void Print(const LogoutOptions& options, const AccountState& before, bool already) {
  if (options.json) {
    Json::Value document = NewDocument();
    document["result"] = already ? "already_signed_out" : "signed_out";
    document["email"] = TextOrNull(before.email);
    document["told_account_centre"] = !already && !options.local;
    PrintDocument(document);
  } else if (already) {
    std::fputs("varnkivo: Nobody was signed in.\n", stderr);
  } else {
    std::printf("Signed out %s\n", Printable(Who(before)).c_str());
  }
}

/// The library goes on whatever fails in the clean-up, and does not tell.
void RequireNothingLeft() {
  for (const std::string& path : {std::string(kRecordPath), TokenPath("lum"), std::string(kJobPath)}) {
    if (!LookAt(path).exists) continue;
    throw Failure{kFailed,
                  std::nullopt,
                  "Signed out, but " + path + " could not be removed (a plug-in that failed, or a read-only disk).",
                  Retry::kPerhaps,
                  "Nothing; the file stays there.",
                  "sudo varnkivo logout --local --yes"};
  }
}

Exit RunLogout(const LogoutOptions& options) {
  const AccountState before = ReadAccountState();
  const History history = ReadHistory();
  const bool already = before.signIn == SignIn::kSignedOut;
  if (already && options.strict)
    throw Failure{kAlready, std::nullopt, "Nobody is signed in.", Retry::kNo, "Nothing.", "varnkivo status"};
  if (!already) Ask(options, before);
  try {
    const Spinner spinner("Signing out", kSeconds, !options.json && !options.local && !already);
    const varnkivo::AccountPkceService service;
    if (options.local || already)
      service.LogoutLocal();
    else
      service.Logout();
  } catch (const varnkivo::KivoException& error) {
    if (!already) throw LogoutFailure(error.GetCode(), error.what(), options);
  } catch (const std::bad_cast&) {  // a token whose lifetime is no number
    if (!already) throw LogoutFailure(KIVO_ERR_TOKEN, "", options);
  }
  if (!already) NoteOwnSignOut(history, VoiceFor(options.json));
  RequireNothingLeft();
  Print(options, before, already);
  return kDone;
}

}  // namespace

void AddLogout(Verb app, Invocation& call) {
  auto options = std::make_shared<LogoutOptions>();
  const Verb verb = app.AddVerb(call, "logout", "Sign this device out and forget the account",
                                "varnkivo logout\n"
                                "  varnkivo logout --local --yes   # without telling the account centre");
  verb.Flag("--local", options->local, "Only clear this device; the account centre is not told");
  verb.Flag("--yes", options->yes, "Do not ask");
  verb.Flag("--strict", options->strict, "End with 9 when nobody is signed in");
  verb.OnUse([options, &call] {
    options->json = call.json;
    call.run = [options] { return RunLogout(*options); };
  });
}

}  // namespace kivotool
