// Turns the current call stack into readable lines.
#ifndef VARNKIVO_BACKTRACE_H_
#define VARNKIVO_BACKTRACE_H_

#include "varnkivo.h"

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace varnkivo {

class KIVO_API Backtrace {
 public:
  /// No lines.
  Backtrace() = default;
  /// Keeps the lines of Capture(depth) for EachLine and the stream operator.
  explicit Backtrace(int depth);

  /// At most `depth` frames of the caller, innermost first: "- FUNCTION +OFFSET", or "- " and the raw symbol text where
  /// it has no function name. The single line "- empty" when no frame can be had (also for a negative depth).
  std::vector<std::string> Capture(int depth) const;
  /// Calls `fn` for each kept line in order.
  void EachLine(std::function<void(const std::string&)> fn) const;
  /// The demangled name, or `mangled` as it stands when it is not a mangled name.
  std::string FormatFunctionName(const char* mangled) const;

 private:
  std::vector<std::string> lines_;
};

/// Each kept line followed by a newline.
KIVO_API std::ostream& operator<<(std::ostream& out, const Backtrace& backtrace);

}  // namespace varnkivo

#endif  // VARNKIVO_BACKTRACE_H_
