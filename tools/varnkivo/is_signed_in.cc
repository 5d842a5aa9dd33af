// `is-signed-in`: yes or no, as the exit code too (0 or 3). "No" is an answer here, so nothing goes to stderr.
#include <cstdio>

#include "account_state.h"
#include "command_line.h"
#include "output.h"

namespace kivotool {
namespace {

Exit RunIsSignedIn(bool json) {
  const AccountState state = ReadAccountState();
  const bool signedIn = state.signIn == SignIn::kSignedIn;
  if (json) {
    Json::Value document = NewDocument();
    document["state"] = SignInName(state.signIn);
    document["signed_in"] = signedIn;
    PrintDocument(document);
  } else {
    std::puts(signedIn ? "yes" : "no");
  }
  return signedIn ? kDone : kNotSignedIn;
}

}  // namespace

void AddIsSignedIn(Verb app, Invocation& call) {
  app.AddVerb(call, "is-signed-in", "Print yes or no and end with 0 or 3; asks nobody",
              "varnkivo is-signed-in > /dev/null || echo \"nobody is signed in\"")
      .OnUse([&call] { call.run = [&call] { return RunIsSignedIn(call.json); }; });
}

}  // namespace kivotool
