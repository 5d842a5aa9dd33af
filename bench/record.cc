// Fills the record through User, as a sign-in does. Mounts a folder of the build tree over the record's folder.
#include "record.h"

#include <linux/magic.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <varnkivo/user.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string>

#include "programs/request.h"

namespace bench {
namespace {

constexpr const char* kFolder = "/usr/varn/etc/varnholt-account/private";
constexpr uid_t kAccountId = 934;

bool IsSandbox() {
  char serial[36] = {};
  return VARNKIVOGetSerialNumber(serial, sizeof serial) == 0 && std::strcmp(serial, kSerial) == 0;
}

bool IsInMemory(const char* path) {
  struct statfs facts = {};
  return statfs(path, &facts) == 0 && facts.f_type == TMPFS_MAGIC;
}

void PutOnDisk() {
  const char* build = std::getenv("VARNKIVO_BUILD");
  if (!build) throw std::runtime_error("VARNKIVO_BUILD is not set");
  const std::string folder = std::string(build) + "/bench/record";
  mkdir(folder.c_str(), 0700);
  if (chown(folder.c_str(), kAccountId, kAccountId) != 0 || IsInMemory(folder.c_str()) ||
      mount(folder.c_str(), kFolder, nullptr, MS_BIND, nullptr) != 0)
    throw std::runtime_error("cannot keep the record in " + folder + ", which has to be on a disk");
}

}  // namespace

void PrepareDevice() {
  if (!IsSandbox()) throw std::runtime_error("this is no sandbox: start it with scripts/sandbox");
  if (IsInMemory(kFolder)) PutOnDisk();
  const varnkivo::User user;
  user.SetUserId(kUserId);
  user.SetAuthKey(kAuthKey);
  user.SetEmail("ann@example.com");
  user.SetName("Ann Example");
  user.SetCountry("US");
  user.SetTimezone("Etc/UTC");
  user.SetNotifyLanguage("enu");
  user.SetIsActivated(true);
  user.SetIsDisabled(false);
  user.SetIsEnews(true);
  user.SetIsEnewsLocalPromotion(false);
  user.SetIsCriticalRelease(true);
  user.SetCriticalVersionList("os,photos");
  user.SetCriticalVersionDomain("os,photos,video");
  user.SetIsRealnameValidationPass(true);
  user.SetReportCronTimestring("~ 9~16 * * 1~5");
  user.SetLastQueryTime(time(nullptr));
}

void PutTokens(const std::string& set, const std::string& client) {
  const std::string path = std::string(kFolder) + "/" + client + "_token.json";
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << set;
  file.close();
  if (!file || chmod(path.c_str(), 0600) != 0 || chown(path.c_str(), kAccountId, kAccountId) != 0)
    throw std::runtime_error("cannot write " + path);
}

}  // namespace bench
