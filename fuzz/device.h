// The device's files for a fuzz target, written afresh for each input. Inside the sandbox only.
#pragma once

#include <string>

constexpr char kPrivateFolder[] = "/usr/varn/etc/varnholt-account/private";
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";

/// Replaces the content of the file; the process ends where that is not possible.
void WriteFile(const std::string& path, const std::string& text);
std::string ReadFile(const std::string& path);
/// Ends the process unless this is the sandbox.
void RequireSandbox();
