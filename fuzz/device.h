// The device's files for a fuzz target, written afresh for each input. Inside the sandbox only. Plain file access:
// speed matters more than a crash in between.
#pragma once

#include <fstream>
#include <sstream>
#include <string>

#include "property.h"

constexpr char kPrivateFolder[] = "/usr/varn/etc/varnholt-account/private";
constexpr char kRecord[] = "/usr/varn/etc/varnholt-account/private/user.conf";

/// Replaces the content of the file; the process ends where that is not possible.
inline void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  Require(static_cast<bool>(file << text << std::flush), "the device's files can be written", path);
}

inline std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

/// Ends the process unless this is the sandbox.
inline void RequireSandbox() {
  Require(ReadFile("/etc/hosts").find("account.kivo.example") != std::string::npos, "this is scripts/sandbox");
}
