// Switches the effective ids of the process to root and back, tracing every change.
// The group goes up first and comes back first, and the way back leads through uid 0: only root may change the gid.
#include "internal/privilege_bracket.h"

#include "internal/account_files.h"

#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace varnkivo {
namespace {

constexpr int kKeep = -1;  // leaves a real or saved id as it is

std::mutex gTurn;
thread_local int tDepth = 0;  // brackets of this thread, one inside the other

void LockOutermost() {
  if (tDepth == 0) gTurn.lock();
}

void UnlockOutermost() {
  if (tDepth == 0) gTurn.unlock();
}

void LogSwitch(bool done, Site site, const char* call, unsigned int id) {
  if (done) {
    LogAt(LOG_AUTH | LOG_DEBUG, site, "WARNING: set%s(%d, %d, %d)", call, kKeep, static_cast<int>(id), kKeep);
  } else {
    LogAt(LOG_AUTH | LOG_ERR, site, "ERROR: set%s(%d, %d, %d) [%s]", call, kKeep, static_cast<int>(id), kKeep,
          std::strerror(errno));
  }
}

}  // namespace

PrivilegeBracket::Turn::Turn() {
  static std::once_flag once;
  std::call_once(once, [] { pthread_atfork(LockOutermost, UnlockOutermost, UnlockOutermost); });
  LockOutermost();
  ++tDepth;
}

PrivilegeBracket::Turn::~Turn() {
  --tDepth;
  UnlockOutermost();
}

PrivilegeBracket::PrivilegeBracket(Site site, Raise raise) : site_(site), uid_(geteuid()), gid_(getegid()) {
  entered_ = uid_ == 0 || (uid_ == kAccountUid && raise == Raise::kOthers);
  if (entered_) return;
  entered_ = raised_ = SetGid(0) && SetUid(0);
  if (entered_) return;
  LogAt(LOG_AUTH | LOG_ERR, site_, "ERROR: ENTERCriticalSection");
  Restore();  // the group may have been raised already
  errno = EPERM;
}

PrivilegeBracket::~PrivilegeBracket() {
  const int savedErrno = errno;
  if (raised_ && !Restore()) LogAt(LOG_AUTH | LOG_ERR, site_, "ERROR: LEAVECriticalSection");
  errno = savedErrno;
}

/// Uid 0 is left even if the gid stays.
bool PrivilegeBracket::Restore() const {
  if (geteuid() == uid_ && getegid() == gid_) return true;
  const bool gidIsBack = getegid() == gid_ || ((geteuid() == uid_ || SetUid(0)) && SetGid(gid_));
  return SetUid(uid_) && gidIsBack;
}

bool PrivilegeBracket::SetUid(uid_t uid) const {
  if (geteuid() == uid) return true;
  const bool done = setresuid(static_cast<uid_t>(kKeep), uid, static_cast<uid_t>(kKeep)) == 0;
  LogSwitch(done, site_, "resuid", uid);
  return done;
}

bool PrivilegeBracket::SetGid(gid_t gid) const {
  if (getegid() == gid) return true;
  const bool done = setresgid(static_cast<gid_t>(kKeep), gid, static_cast<gid_t>(kKeep)) == 0;
  LogSwitch(done, site_, "resgid", gid);
  return done;
}

}  // namespace varnkivo
