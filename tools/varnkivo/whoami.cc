// `whoami`: the e-mail of the signed-in account, for people and for scripts. Reads the record only; a sign-in whose
// profile was never fetched has no e-mail yet and shows its user id.
#include <cstdio>

#include "account_state.h"
#include "command_line.h"
#include "output.h"
#include "text.h"

namespace kivotool {
namespace {

Exit RunWhoami(bool json) {
  const AccountState state = ReadAccountState();
  const bool signedIn = state.signIn == SignIn::kSignedIn;
  if (json) {
    Json::Value document = NewDocument();
    document["state"] = SignInName(state.signIn);
    document["signed_in"] = signedIn;
    document["email"] = TextOrNull(state.email);
    document["user_id"] = TextOrNull(state.userId);
    PrintDocument(document);
  }
  if (!signedIn) throw NotSignedInFailure();
  if (!json) std::printf("%s\n", Printable(state.email.empty() ? state.userId : state.email).c_str());
  return kDone;
}

}  // namespace

void AddWhoami(Verb app, Invocation& call) {
  app.AddVerb(call, "whoami", "Print the e-mail of the signed-in account; asks nobody", "varnkivo whoami")
      .OnUse([&call] { call.run = [&call] { return RunWhoami(call.json); }; });
}

}  // namespace kivotool
