// `account`: the group of verbs about the account itself. No state of its own.
#include "account_verbs.h"

namespace kivotool {

void AddAccount(Verb app, Invocation& call) {
  const Verb account =
      app.AddGroup("account", "The account: show or change it, or register a new one", "varnkivo account show");
  AddAccountShow(account, call);
  AddAccountSet(account, call);
  AddAccountPassword(account, call);
  AddAccountRegister(account, call);
}

}  // namespace kivotool
