// Where the account's private files are and whose they are.
#ifndef VARNKIVO_INTERNAL_ACCOUNT_FILES_H_
#define VARNKIVO_INTERNAL_ACCOUNT_FILES_H_

#include <sys/types.h>

namespace varnkivo {

constexpr const char* kPrivateDirectory = "/usr/varn/etc/varnholt-account/private";
constexpr const char* kRecordFile = "/usr/varn/etc/varnholt-account/private/user.conf";
constexpr uid_t kAccountUid = 934;
constexpr gid_t kAccountGid = 934;
constexpr mode_t kPrivateMode = 0600;

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_ACCOUNT_FILES_H_
