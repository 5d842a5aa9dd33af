// Key/value files: the account record and the device's configuration. Readers take no lock, as a file is only ever
// replaced whole; writers hold the sibling lock from their read to their rename, or one of two updates would be lost.
#include <unistd.h>

#include <cerrno>
#include <string>

#include "error.h"
#include "file_util.h"
#include "key_value_text.h"

namespace varnplatform {
namespace {

/// The file as it is now, empty with mode 0600 and this process as owner where there is none yet.
bool ReadForUpdate(const std::string& path, std::string* content, FileOwner* owner) {
  struct stat status {};
  if (ReadFile(path, Links::kRefuse, content, &status)) {
    if (status.st_nlink > 1) return Fail(VLIB_ERR_ACCESS) == 0;  // its content may be another file's secret
    *owner = {status.st_mode & 07777, status.st_uid, status.st_gid};
    return true;
  }
  if (errno != ENOENT) return false;
  content->clear();
  *owner = {0600, geteuid(), getegid()};
  struct stat directory {};  // what root makes there belongs to whom the directory does
  if (owner->uid == 0 && stat(DirectoryOf(path).c_str(), &directory) == 0)
    *owner = {0600, directory.st_uid, directory.st_gid};
  return true;
}

int SetKeyValue(const std::string& path, const char* key, const char* value, const char* format) {
  const auto line = PrintLine(key, value, format ? format : "%s=\"%s\"\n");
  if (!line) return Fail(VLIB_ERR_BAD_PARAMETER);
  SiblingLock lock;
  std::string content;
  FileOwner owner{};
  if (!lock.Acquire(path) || !ReadForUpdate(path, &content, &owner)) return -1;
  const std::string updated = WithLine(content, key, *line);
  if (updated == content) return 0;  // spares the flash: most values of a refresh are the stored ones
  const std::string temporary = HiddenSibling(path, ".new");
  unlink(temporary.c_str());  // left by a writer that was killed; the lock says that there is no living one
  return ReplaceFile(path, temporary, updated, owner) ? 0 : -1;
}

}  // namespace
}  // namespace varnplatform

using namespace varnplatform;

int VLIBCFileGetKeyValue(const char* path, const char* key, char* value, int size) {
  if (value && size > 0) value[0] = '\0';
  if (!path || !key || !value || size < 1) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    std::string content;
    if (!ReadFile(path, Links::kFollow, &content)) return -1;
    return CopyOut(FindValue(content, key).value_or(""), value, size);
  });
}

int VLIBCFileSetKeyValue(const char* path, const char* key, const char* value, const char* format) {
  if (!path || !key || !value) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] { return SetKeyValue(path, key, value, format); });
}

int VLIBCFileCheckKeyValue(const char* path, const char* key, const char* value) {
  if (!path || !key || !value) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    std::string content;
    if (!ReadFile(path, Links::kFollow, &content)) return -1;
    return FindValue(content, key) == value ? 1 : 0;
  });
}

int VLIBCFileGetKeys(const char* path, VLIBSzHash* values, const char* separator) {
  if (!path || !values || (separator && !*separator)) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    std::string content;
    if (!ReadFile(path, Links::kFollow, &content)) return -1;
    const auto pairs = ParsePairs(content, separator ? separator : "=");
    for (const auto& pair : pairs) {
      if (VLIBCSzHashSetValue(values, pair.first.c_str(), pair.second.c_str()) != 0) return -1;
    }
    return static_cast<int>(pairs.size());
  });
}
