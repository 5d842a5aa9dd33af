// `account`: the group of verbs about the account itself. No state of its own.
#include "account_verbs.h"

namespace kivotool {

void AddAccount(CLI::App& app, Invocation& call) {
  CLI::App* account = app.add_subcommand("account", "The account: show or change it, or register a new one");
  account->require_subcommand(1);
  account->footer("Example:\n  varnkivo account show");
  AddAccountShow(*account, call);
  AddAccountSet(*account, call);
  AddAccountPassword(*account, call);
  AddAccountRegister(*account, call);
}

}  // namespace kivotool
