// Facts about this device: serial numbers, MAC, user agent. Each is a key of "/usr/varn/etc/host.conf"; a machine that
// does not set one gets a value of its own. They are read at every call: a set-up program may write them at any time.
#include "device_facts.h"

#include <dirent.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "error.h"
#include "file_util.h"
#include "key_value_text.h"

namespace varnplatform {
namespace {

const char* const kHostConf = "/usr/varn/etc/host.conf";
const char* const kInterfaces = "/sys/class/net/";

/// The fact that is set in the file, else what `own` finds. Empty where the file is there and cannot be read: a device
/// must not become another one for the length of a bad read.
template <class Own>
std::string Fact(const char* key, Own own) {
  std::string content;
  if (!ReadFile(kHostConf, Links::kFollow, &content)) return errno == ENOENT ? own() : std::string();
  std::string configured = FindValue(content, key).value_or("");
  return configured.empty() ? own() : configured;
}

std::string MachineSerial() {
  std::string id = FirstLine("/etc/machine-id");
  if (id.empty() || id == "uninitialized") {
    Fail(VLIB_ERR_NO_SERIAL);
    return {};
  }
  return id;
}

/// Where none is set: that of a device whose serial was never changed.
std::string OriginalSerialNumber() { return Fact("original_serial", SerialNumber); }

bool IsPhysicalEthernet(const std::string& interface) {
  return access((interface + "/device").c_str(), F_OK) == 0 && FirstLine(interface + "/type") == "1";
}

/// MAC of the physical interface with the lowest index, which stays the same when interfaces are renamed or added.
std::string PhysicalMac() {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(kInterfaces), closedir);
  std::string best;
  long bestIndex = 0;
  while (const dirent* entry = directory ? readdir(directory.get()) : nullptr) {
    if (entry->d_name[0] == '.') continue;
    const std::string interface = std::string(kInterfaces) + entry->d_name;
    const std::string mac = FirstLine(interface + "/address");
    const long index = std::strtol(FirstLine(interface + "/ifindex").c_str(), nullptr, 10);
    const bool real = IsPhysicalEthernet(interface) && mac.find_first_not_of("0:") != std::string::npos;
    if (real && (best.empty() || index < bestIndex)) {
      best = mac;
      bestIndex = index;
    }
  }
  return best;
}

std::string SystemVersion() {
  std::string release;
  if (!ReadFile("/etc/os-release", Links::kFollow, &release)) return "0";
  return FindValue(release, "VERSION_ID").value_or("0");
}

/// What a header may carry without quoting; anything else becomes '_'.
std::string Token(std::string text) {
  const auto allowed = [](char c) {
    return (c > 0 && std::isalnum(static_cast<unsigned char>(c))) || c == '.' || c == '-' || c == '_';
  };
  std::replace_if(
      text.begin(), text.end(), [&](char c) { return !allowed(c); }, '_');
  return text;
}

std::string UserAgent(const char* product) {
  utsname machine{};
  const char* architecture = uname(&machine) == 0 ? machine.machine : "unknown";
  return Token(product) + "/" + Token(Fact("product_version", SystemVersion)) + " (Lum; " + Token(architecture) + ")";
}

/// Gives a fact to the caller; an empty one fails with `missing`.
template <class Fact>
int Give(char* buffer, int size, unsigned int missing, Fact fact) {
  if (buffer && size > 0) buffer[0] = '\0';
  if (!buffer || size < 1) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    const std::string text = fact();
    if (text.empty()) return Fail(missing);
    CopyOut(text, buffer, size);
    return 0;
  });
}

}  // namespace

std::string SerialNumber() { return Fact("serial", MachineSerial); }

std::string FirstLine(const std::string& path) {
  std::string content;
  if (!ReadFile(path, Links::kFollow, &content)) return {};
  content.resize(std::min(content.find('\n'), content.size()));
  return VLIBCStrTrimSpace(content.data());
}

}  // namespace varnplatform

using namespace varnplatform;

int VLIBGetSerialNumber(char* serial, int size) { return Give(serial, size, VLIB_ERR_NO_SERIAL, SerialNumber); }

int VLIBGetOriginalSerialNumber(char* serial, int size) {
  return Give(serial, size, VLIB_ERR_NO_SERIAL, OriginalSerialNumber);
}

int VARNLuinfoCloudServiceGetMacAddress(char* mac, int size) {
  return Give(mac, size, VLIB_ERR_NO_INTERFACE, [] { return Fact("mac", PhysicalMac); });
}

int VLIBLuinfoUserAgentGet(const char* product, char* agent, int size) {
  return Give(agent, size, VLIB_ERR_BAD_PARAMETER,
              [&] { return product && *product ? UserAgent(product) : std::string(); });
}
