// Small files as texts.
#ifndef VARNKIVO_INTERNAL_FILE_TEXT_H_
#define VARNKIVO_INTERNAL_FILE_TEXT_H_

#include "internal/wiped.h"

#include <sys/stat.h>

#include <cstddef>
#include <optional>
#include <string>

namespace varnkivo {

constexpr std::size_t kMostFileBytes = 4u << 20;

enum class Links { kFollow, kRefuse };

/// All of a regular file of at most kMostFileBytes; otherwise nothing and errno. Never waits for a fifo or a device.
std::optional<Wiped> ReadFileText(const char* path, Links links);
/// The same for a file, not a link, whose facts `isAcceptable`; errno is EINVAL where they are not.
std::optional<Wiped> ReadFileText(const char* path, bool (*isAcceptable)(const struct stat& facts));
/// All of `text`, over short writes and signals. False with errno.
bool WriteAll(int file, const std::string& text);

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_FILE_TEXT_H_
