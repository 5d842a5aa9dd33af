// The relay's configuration as another program may leave it. The scan tells what it finds there, or nothing; it never
// fails because of it.
#include <json/json.h>
#include <varn/platform.h>
#include <varnkivo/varnkivo.h>

#include <filesystem>

#include "device.h"
#include "property.h"

/// A device without dynamic DNS: no program is started for each input.
extern "C" FILE* VLIBCPopen(const char*, const char*, const char*, ...) { return nullptr; }

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RequireSandbox();
  std::filesystem::create_directories("/usr/varn/etc/varnrelayd");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  WriteFile("/usr/varn/etc/varnrelayd/varnrelayd.conf", std::string(reinterpret_cast<const char*>(data), size));
  Json::Value found("what was there before");
  Require(VARNKIVOAccountScanExisting(found) == 0, "the scan ends well");
  Require(found.isObject() && found.size() <= 1, "one source, one account at most", found.toStyledString());
  for (const std::string& account : found.getMemberNames()) {
    const Json::Value& services = found[account]["services"];
    Require(!account.empty() && services.size() == 1 && services[0]["type"] == "farlink", "an account and its service",
            found.toStyledString());
  }
  return 0;
}
