// The device's valid access token without the library: the least that is as safe among processes. The same lock file,
// the same token file, read and parsed, the expiry looked at.
#ifndef VARNKIVO_BENCH_PROGRAMS_TOKEN_BY_HAND_H_
#define VARNKIVO_BENCH_PROGRAMS_TOKEN_BY_HAND_H_

#include <string>

namespace bench {

std::string ReadTokenByHand();         ///< empty where there is none
std::string ReadPackageTokenByHand();  ///< that of the package "photos", under both of its locks

}  // namespace bench

#endif  // VARNKIVO_BENCH_PROGRAMS_TOKEN_BY_HAND_H_
