// The lock of one operation of one client, between all processes of the device.
#ifndef VARNKIVO_PKCE_OPERATION_LOCK_H_
#define VARNKIVO_PKCE_OPERATION_LOCK_H_

#include "file_lock.h"

#include <string>

namespace varnkivo {

/// Held from construction to destruction.
class OperationLock {
 public:
  /// Waits up to 30 seconds, then throws KivoException 22.
  OperationLock(const std::string& client, const char* operation);

 private:
  FileLock lock_;
};

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_OPERATION_LOCK_H_
