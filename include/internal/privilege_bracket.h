// Root ids for one access to the account's private files.
#ifndef VARNKIVO_INTERNAL_PRIVILEGE_BRACKET_H_
#define VARNKIVO_INTERNAL_PRIVILEGE_BRACKET_H_

#include "internal/log.h"

#include <sys/types.h>

namespace varnkivo {

enum class Raise { kOthers, kServiceToo };  // the account service's own ids suffice for its files, not for others'

/// Raises the effective ids of the whole process to 0, unless the caller is root or the account service already, and
/// puts them back when it goes. Keep what runs inside small: no network, and nothing that waits.
class PrivilegeBracket {
 public:
  explicit PrivilegeBracket(Site site, Raise raise = Raise::kOthers);
  PrivilegeBracket(const PrivilegeBracket&) = delete;
  PrivilegeBracket& operator=(const PrivilegeBracket&) = delete;
  ~PrivilegeBracket();

  /// False, logged and errno EPERM, when the ids could not be raised; they are then as before. The caller words the
  /// "no" and does not touch the files.
  bool Entered() const { return entered_; }

 private:
  bool SetUid(uid_t uid) const;
  bool SetGid(gid_t gid) const;
  bool Restore() const;

  /// The ids belong to all threads of the process: a second bracket waits, or it would take the raised ids for its own.
  class Turn {
   public:
    Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn();
  };

  Turn turn_;  // first: taken before the ids are read, given back after they are restored
  Site site_;
  uid_t uid_;
  gid_t gid_;
  bool entered_;
  bool raised_ = false;  // by this object; another thread may have raised the ids before it
};

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_PRIVILEGE_BRACKET_H_
