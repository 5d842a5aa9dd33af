// The operations that faults are put into. A new one is a function and a row in scenarios.cc.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "cloud_process.h"

namespace faults {

/// What an operation does with the token set of the client "lum".
enum class Tokens {
  kNone,      // there is none, before or after
  kReplaced,  // by a new one that the cloud accepts; the old one stays until then
  kRemoved,   // with those of other clients, the record and the report job
};

/// What may become of the record, beyond what it is rewritten to.
enum class Loss {
  kNever,
  kByFailure,  // a call that fails after its first steps may remove it
  kBySignOut,  // a call that fails may sign the device out, which takes everything and is logged
};

struct Scenario {
  const char* name;
  uid_t uid;           // whose process: 0, the account service's, or any other, which can come back to root
  std::string record;  // the account record before; empty: none
  int (*run)();        // 0 or above is success
  bool resultTells;    // false: the operation answers the same whether it worked or not
  Tokens tokens = Tokens::kNone;
  Loss loss = Loss::kNever;
  Work prepare = nullptr;                  // leaves what the operation finds; gives a line for each run, for UseLine
  int (*again)() = nullptr;                // how it is repeated once the cloud has forgotten the device; null: as ever
  bool recordStays = false;                // it has nothing to change in the record
  std::vector<std::string> promised = {};  // keys of the new record that success stands for; none: all of the record
};

const std::vector<Scenario>& Scenarios();

/// The code that a sign-in with PKCE trades.
void UseLine(const std::string& line);
int LogoutLocally();

/// What no log may show.
std::vector<std::string> Secrets();

}  // namespace faults
