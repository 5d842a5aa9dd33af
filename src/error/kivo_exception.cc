// The exception of the classes: code, message and the stack of the place that made it.
// The whole text is composed once, at construction, so that what() cannot fail.
#include "kivo_exception.h"

#include "backtrace.h"
#include "internal/string_utils.h"

#include <sstream>
#include <stdexcept>

namespace varnkivo {
namespace {

constexpr int kFrames = 16;

}  // namespace

class KivoExceptionImpl : public std::runtime_error {
 public:
  KivoExceptionImpl(KIVO_ERRCODE code, const std::string& message)
      : std::runtime_error(message + " [code=" + std::to_string(static_cast<int>(code)) + "]"),
        code_(code),
        backtrace_(kFrames) {
    std::ostringstream text;
    text << std::runtime_error::what() << '\n' << backtrace_;
    description_ = text.str();
  }
  KIVO_ERRCODE GetCode() const { return code_; }
  const char* what() const noexcept override { return description_.c_str(); }

 private:
  KIVO_ERRCODE code_;
  Backtrace backtrace_;
  std::string description_;
};

KivoException::KivoException(KIVO_ERRCODE code, const std::string& message)
    : impl_(new KivoExceptionImpl(code, message)) {}
KivoException::KivoException(const std::string& message) : KivoException(KIVO_ERR_UNKNOWN, message) {}
KivoException::KivoException(KIVO_ERRCODE code) : KivoException(code, GetKivoErrorMsg(code)) {}
KivoException::KivoException(const KivoException& other)
    : std::exception(other), impl_(new KivoExceptionImpl(other.GetCode(), other.what())) {}
KivoException::~KivoException() = default;  // here, where KivoExceptionImpl is complete

KIVO_ERRCODE KivoException::GetCode() const { return impl_->GetCode(); }
const char* KivoException::what() const noexcept { return impl_->what(); }

}  // namespace varnkivo
