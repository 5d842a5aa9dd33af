// Processes and files of a test. Nothing here stands in front of anything.
#pragma once

#include <functional>
#include <string>

namespace testsupport {

/// What `work` returns in a child, which has ten minutes; how the child ended where it did not end well.
std::string InChild(const std::function<std::string()>& work);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
/// A file of mode 0600 that belongs to the account's user.
void WritePrivateFile(const std::string& path, const std::string& content);
/// "0600 934:934", or "none".
std::string ModeAndOwner(const std::string& path);
inline bool IsThere(const std::string& path) { return ModeAndOwner(path) != "none"; }

/// Real, effective and saved ids of this process, as "UID,UID,UID GID,GID,GID".
std::string Ids();

}  // namespace testsupport
