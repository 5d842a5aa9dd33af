// A signed-in device to measure on.
#ifndef VARNKIVO_BENCH_RECORD_H_
#define VARNKIVO_BENCH_RECORD_H_

#include <string>

namespace bench {

/// Puts the account record on a disk where the sandbox keeps it in memory (a write would cost nothing there), fills it,
/// and has it fresh enough for a query not to go to the server. Throws outside of a sandbox.
void PrepareDevice();

/// Makes `set` the content of the token file of a client, by default the device's own.
void PutTokens(const std::string& set, const std::string& client = "lum");

}  // namespace bench

#endif  // VARNKIVO_BENCH_RECORD_H_
