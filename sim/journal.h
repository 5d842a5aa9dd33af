// The record of everything that reached the simulator: one entry per request, and one per connection that ended
// without a complete request. Entries hold secrets in clear: passwords, tokens and keys are what tests look for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/message.h"

namespace kivosim {

struct JournalEntry {
  enum class Kind {
    kRequest,          ///< a complete request; `request`, `status` and `complaint` say the rest
    kHandshakeFailed,  ///< TLS did not come about; `error` has the reason, `applicationBytes` is 0
    kIncomplete,       ///< bytes came, but never a whole or well-formed request; they stand in `request.raw`
    kNoRequest,        ///< a handshake and nothing more
  };
  Kind kind = Kind::kRequest;
  std::size_t connection = 0;  ///< number of the connection, from 1
  std::string sni;
  std::string tlsVersion;            ///< "TLSv1.3"; empty before a handshake is through
  std::size_t applicationBytes = 0;  ///< bytes received on the connection so far, below TLS not counted
  Request request;                   ///< kRequest: all of it; kIncomplete: `raw` and, if the head came, its fields
  std::string complaint;             ///< what is wrong with the request; empty when nothing is
  int status = 0;                    ///< of the answer; 0 when none was even begun
  std::string answer;                ///< body of the answer as it was meant, before a fault cut or stretched it
  std::string error;                 ///< why a handshake or connection failed
  std::int64_t milliseconds = 0;     ///< when, since Start()
};

}  // namespace kivosim
