// The settings of the sign-in, as a template file that somebody has edited. What is made of them leads to this device's
// own hosts, or is refused.
#include <json/json.h>
#include <varnkivo/account_pkce_service.h>
#include <varnkivo/kivo_exception.h>

#include "device.h"
#include "property.h"

namespace {

const char kTemplate[] = "/usr/varn/etc.defaults/varnholt-account/config/pkce_login.conf";

bool BeginsWith(const std::string& text, const std::string& begin) { return text.compare(0, begin.size(), begin) == 0; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RequireSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  WriteFile(kTemplate, std::string(reinterpret_cast<const char*>(data), size));
  try {
    const varnkivo::AccountPkceService service;
    const Json::Value config = service.GetLoginPkceConfig();
    for (const char* name : {"auth_endpoint", "token_endpoint"}) {
      const std::string url = config[name].asString();
      Require(url.empty() || BeginsWith(url, "https://identity.kivo.example"), "the identity host is asked", url);
    }
  } catch (const varnkivo::KivoException&) {
  }
  return 0;
}
