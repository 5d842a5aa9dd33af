// Two files and a parser. Touches the lock file of the library, whose name it must share.
#include "token_by_hand.h"

#include <fcntl.h>
#include <json/json.h>
#include <sys/file.h>
#include <unistd.h>

#include <ctime>

namespace bench {
namespace {

/// Json::Reader, because its successor takes longer to set up.
bool Parse(const char* text, std::size_t size, Json::Value& set) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return Json::Reader().parse(text, text + size, set, false);
#pragma GCC diagnostic pop
}

std::string ReadToken(const char* lockPath, const char* path) {
  const int lock = open(lockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  const int file = lock >= 0 && flock(lock, LOCK_EX) == 0 ? open(path, O_RDONLY | O_CLOEXEC) : -1;
  char text[8192];
  const ssize_t size = file < 0 ? -1 : read(file, text, sizeof text);
  close(file);
  Json::Value set;
  const bool valid = size > 0 && Parse(text, static_cast<std::size_t>(size), set) &&
                     set["created_at"].asInt64() + set["expires_in"].asInt64() >= time(nullptr);
  close(lock);
  return valid ? set["access_token"].asString() : "";
}

}  // namespace

std::string ReadTokenByHand() {
  return ReadToken("/tmp/account_lum_get_token.lock", "/usr/varn/etc/varnholt-account/private/lum_token.json");
}

std::string ReadPackageTokenByHand() {
  const int lock = open("/tmp/account_photos_package_get_token.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  std::string token;
  if (lock >= 0 && flock(lock, LOCK_EX) == 0)
    token = ReadToken("/tmp/account_photos_get_token.lock", "/usr/varn/etc/varnholt-account/private/photos_token.json");
  close(lock);
  return token;
}

}  // namespace bench
