// Growing a malloc'ed text, and trimming one in place. The buffer stays the caller's and is freed with free(), so
// nothing here may come from new; a failure leaves it as it was.
#include <climits>
#include <cstdlib>
#include <cstring>

#include "error.h"

namespace {

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }  // whatever the locale

}  // namespace

int VLIBCStrCat(char** buffer, int* size, const char* text) {
  using varnplatform::Fail;
  if (!buffer || !size || !text || *size < 0) return Fail(VLIB_ERR_BAD_PARAMETER);
  const std::size_t capacity = *buffer ? static_cast<std::size_t>(*size) : 0;
  const std::size_t used = *buffer ? strnlen(*buffer, capacity) : 0;
  if (*buffer && used == capacity) return Fail(VLIB_ERR_BAD_PARAMETER);  // not terminated within its size
  const std::size_t added = std::strlen(text);
  const std::size_t needed = used + added + 1;
  if (needed > INT_MAX) return Fail(VLIB_ERR_TOO_LARGE);
  if (needed <= capacity) {
    std::memmove(*buffer + used, text, added);  // text may be the buffer itself: its old end is overwritten last
    (*buffer)[used + added] = '\0';
    return 0;
  }
  const std::size_t grown = needed > INT_MAX / 2 ? needed : needed * 2;
  char* larger = static_cast<char*>(std::malloc(grown));
  if (!larger) return Fail(VLIB_ERR_NO_MEMORY);
  if (used > 0) std::memcpy(larger, *buffer, used);
  std::memcpy(larger + used, text, added);
  larger[used + added] = '\0';
  std::free(*buffer);
  *buffer = larger;
  *size = static_cast<int>(grown);
  return 0;
}

char* VLIBCStrTrimSpace(char* text) {
  if (!text) return text;
  const char* first = text;
  while (IsSpace(*first)) ++first;
  std::size_t length = std::strlen(first);
  while (length > 0 && IsSpace(first[length - 1])) --length;
  std::memmove(text, first, length);
  text[length] = '\0';
  return text;
}
