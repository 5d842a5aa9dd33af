// A lock between processes on a file, waited for with a deadline and released at destruction.
#ifndef VARNKIVO_FILE_LOCK_H_
#define VARNKIVO_FILE_LOCK_H_

#include "varnkivo.h"

#include <string>

namespace varnkivo {

/// One object belongs to one thread. The kernel frees the lock when its holder dies.
class KIVO_API FileLock {
 public:
  /// `shared` false, as everywhere in this library: the lock excludes every other holder.
  explicit FileLock(const std::string& path, bool shared = false);
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  virtual ~FileLock();

  /// Takes the lock, trying every 50 to 100 ms until `timeoutSeconds` are over; 0 never tries. A lock this object holds
  /// is dropped first. Creates the file (0666 less umask 011) when absent; never follows a link. False when not taken.
  bool Lock(unsigned int timeoutSeconds);
  /// Harmless when nothing is held.
  void Unlock();
  std::string GetPath() const;

 private:
  std::string path_;
  bool shared_;
  int handle_ = -1;  // the platform's, -1 while nothing is held
};

}  // namespace varnkivo

#endif  // VARNKIVO_FILE_LOCK_H_
