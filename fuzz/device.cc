// Plain file access; speed matters more than a crash in between.
#include "device.h"

#include <fstream>
#include <sstream>

#include "property.h"

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  Require(static_cast<bool>(file << text << std::flush), "the device's files can be written", path);
}

std::string ReadFile(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path, std::ios::binary).rdbuf();
  return text.str();
}

void RequireSandbox() {
  Require(ReadFile("/etc/hosts").find("account.kivo.example") != std::string::npos, "this is scripts/sandbox");
}
