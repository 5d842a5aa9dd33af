// Who is signed in on this device, as the account record says it. Reading it never asks the network and never waits.
#pragma once

#include <varnkivo/kivo_exception.h>

#include <cstdint>
#include <string>

#include "failure.h"

namespace kivotool {

enum class SignIn {
  kSignedOut,
  kIncomplete,  ///< the record names somebody, but without user id or auth key no request can be made
  kSignedIn,    ///< user id and auth key are there; the e-mail comes with the first query
};

struct AccountState {
  SignIn signIn = SignIn::kSignedOut;
  std::string email;
  std::string userId;
  bool activated = false;
  std::int64_t lastQuery = 0;  ///< seconds since the epoch; 0: never
};

/// Throws a permission Failure where the record is out of reach; `again` is the command line to be run with more
/// rights.
AccountState ReadAccountState(const std::string& again = "");
/// "signed_in", "incomplete" or "signed_out".
const char* SignInName(SignIn signIn);
/// Runs `read`, which uses the record, and turns the library's exception into a Failure.
template <class Read>
auto WithRecord(Read read) {
  try {
    return read();
  } catch (const varnkivo::KivoException& error) {
    Situation situation;
    situation.text = error.what();
    throw Explain(error.GetCode(), situation);
  }
}

}  // namespace kivotool
