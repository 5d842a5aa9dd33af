// The one exception type of the classes: an error code, a message and the call stack where it was made.
#ifndef VARNKIVO_KIVO_EXCEPTION_H_
#define VARNKIVO_KIVO_EXCEPTION_H_

#include "varnkivo.h"

#include <exception>
#include <memory>
#include <string>

namespace varnkivo {

class KivoExceptionImpl;

class KIVO_API KivoException : public std::exception {
 public:
  KivoException(KIVO_ERRCODE code, const std::string& message);
  /// Code 24.
  explicit KivoException(const std::string& message);
  /// Message of GetKivoErrorMsg.
  explicit KivoException(KIVO_ERRCODE code);
  /// Captures the stack anew; the copy's text nests the source's. Rethrow with `throw;` rather than by copy.
  KivoException(const KivoException& other);
  KivoException& operator=(const KivoException&) = delete;
  ~KivoException() override;

  KIVO_ERRCODE GetCode() const;
  /// "MESSAGE [code=N]", a newline, then one stack frame a line.
  const char* what() const noexcept override;

 private:
  std::unique_ptr<KivoExceptionImpl> impl_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_KIVO_EXCEPTION_H_
