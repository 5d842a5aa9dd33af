// Text that is overwritten when it goes.
#ifndef VARNKIVO_INTERNAL_WIPED_H_
#define VARNKIVO_INTERNAL_WIPED_H_

#include <string.h>

#include <string>
#include <utility>

namespace varnkivo {

/// A password or what holds one. Reserve before appending: a text that grows leaves its old memory behind as it was.
struct Wiped : std::string {
  using std::string::string;
  explicit Wiped(std::string&& text) : std::string(text.data(), text.size()) {
    explicit_bzero(text.data(), text.capacity());
  }
  Wiped(const Wiped&) = default;
  Wiped(Wiped&& other) noexcept : std::string(std::move(other)) {}
  Wiped& operator=(const Wiped&) = default;
  ~Wiped() { explicit_bzero(data(), capacity()); }
};

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_WIPED_H_
