// A small file that is there after a power cut, without the library: the least that a stored value or token costs.
#ifndef VARNKIVO_BENCH_PROGRAMS_STORE_BY_HAND_H_
#define VARNKIVO_BENCH_PROGRAMS_STORE_BY_HAND_H_

#include <string>

namespace bench {

bool StoreByHand(const std::string& text);  ///< beside the record

}  // namespace bench

#endif  // VARNKIVO_BENCH_PROGRAMS_STORE_BY_HAND_H_
