// The thread's last platform error: code, and the file and line that raised it. A thread-local of plain words, so that
// it also works in a child forked from a threaded program, where nothing may wait for a lock.
#include "error.h"

#include <cerrno>
#include <cstring>

namespace varnplatform {
namespace {

struct LastError {
  unsigned int code = VLIB_ERR_NONE;
  const char* file = "";
  int line = 0;
};

thread_local LastError gLast;

unsigned int CodeOfErrno(int error, unsigned int otherwise) {
  switch (error) {
    case ENOENT:
      return VLIB_ERR_NOT_FOUND;
    case EACCES:
    case EPERM:
      return VLIB_ERR_ACCESS;
    case ENOMEM:
      return VLIB_ERR_NO_MEMORY;
    case ELOOP:
    case ENXIO:
    case EISDIR:
      return VLIB_ERR_NOT_REGULAR;
    default:
      return otherwise;
  }
}

}  // namespace

int Fail(unsigned int code, const char* file, int line) noexcept {
  const char* slash = std::strrchr(file, '/');
  gLast = {code, slash ? slash + 1 : file, line};
  return -1;
}

int FailErrno(unsigned int otherwise, const char* file, int line) noexcept {
  return Fail(CodeOfErrno(errno, otherwise), file, line);
}

}  // namespace varnplatform

unsigned int VLIBCErrGet(void) { return varnplatform::gLast.code; }
const char* VLIBCErrorGetFile(void) { return varnplatform::gLast.file; }
int VLIBCErrorGetLine(void) { return varnplatform::gLast.line; }
