// The cached configuration of a package, when a renewal needs it. It is used, or refused with the exceptions that the
// header names; either way the package keeps a token set it can renew again.
#include <json/json.h>
#include <varnkivo/kivo_exception.h>
#include <varnkivo/package_pkce_client.h>

#include <unistd.h>

#include "answers.h"
#include "device.h"

namespace {

constexpr char kCache[] = "/tmp/account_fuzz_pkce_client.conf";
constexpr char kExpired[] =
    R"({"access_token":"old","id_token":"i","refresh_token":"r1","expires_in":1,"created_at":1})";
constexpr char kRenewed[] = R"({"access_token":"new","id_token":"i","refresh_token":"r2","expires_in":3600})";
constexpr char kDevice[] =
    R"({"access_token":"device","id_token":"i","refresh_token":"r","expires_in":2000000000,"created_at":1})";

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RequireSandbox();
  WriteFile(std::string(kPrivateFolder) + "/lum_token.json", kDevice);
  AnswerWith(200, kRenewed);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string tokenFile = std::string(kPrivateFolder) + "/fuzz_token.json";
  unlink(kCache);  // the library may have made it another user's
  WriteFile(kCache, std::string(reinterpret_cast<const char*>(data), size));
  WriteFile(tokenFile, kExpired);
  try {
    const std::string token = varnkivo::PackagePkceClient("fuzz").GetAccessToken();
    Require(token == "new", "an expired token is not handed out", token);
  } catch (const varnkivo::KivoException&) {
    Require(ReadFile(tokenFile) == kExpired, "a failure leaves the set as it was", ReadFile(tokenFile));
  }
  return 0;
}
