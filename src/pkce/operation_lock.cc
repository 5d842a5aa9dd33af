// Takes "/tmp/account_CLIENT_OPERATION.lock". Touches that file only.
#include "operation_lock.h"

#include "internal/string_utils.h"
#include "kivo_exception.h"

namespace varnkivo {
namespace {

constexpr unsigned int kSeconds = 30;

}  // namespace

OperationLock::OperationLock(const std::string& client, const char* operation)
    : lock_(format("/tmp/account_%s.lock", (client + operation).c_str())) {
  if (!lock_.Lock(kSeconds))
    throw KivoException(KIVO_ERR_TOKEN, format("Failed to lock file: %s", lock_.GetPath().c_str()));
}

}  // namespace varnkivo
