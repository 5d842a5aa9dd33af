// The platform's last error, one per thread: every internal step that fails records it where it is known best, so that
// the caller's log line leads here. Never record on the way up a second time: the first place is the useful one.
#ifndef VARNPLATFORM_ERROR_H
#define VARNPLATFORM_ERROR_H

#include <new>

#include <varn/platform.h>

namespace varnplatform {

/// Records `code` with the caller's file and line. Always -1, so that a call can end with
/// `return Fail(...)`, and one that returns a bool with `return Fail(...) == 0`.
int Fail(unsigned int code, const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept;

/// Records what errno says (not found, no access, no memory, a link), else `otherwise`. Always -1; keeps errno.
int FailErrno(unsigned int otherwise, const char* file = __builtin_FILE(), int line = __builtin_LINE()) noexcept;

/// The edge of the library: `body` returns an int, and no exception passes.
template <class Body>
int Guarded(Body body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return Fail(VLIB_ERR_NO_MEMORY);
  } catch (...) {
    return Fail(VLIB_ERR_SYSTEM);
  }
}

}  // namespace varnplatform

#endif  // VARNPLATFORM_ERROR_H
