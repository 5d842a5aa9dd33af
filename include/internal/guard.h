// The wall between C++ and the exported functions: no exception gets past it.
#ifndef VARNKIVO_INTERNAL_GUARD_H_
#define VARNKIVO_INTERNAL_GUARD_H_

#include "internal/log.h"

namespace varnkivo {

/// To be called in a catch block: logs the exception at `site`, puts its code (a KivoException's own, 2 for JSON,
/// 6 for memory, 24 for others) into the slot and returns -1.
int Unexpected(Site site) noexcept;

/// Runs `body`, which gives the exported function's result.
template <class Body>
int Guarded(Site site, Body body) noexcept {
  try {
    return body();
  } catch (...) {
    return Unexpected(site);
  }
}

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_GUARD_H_
