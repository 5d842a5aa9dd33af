// A token file as a crash, an editor or another program may leave it. It is read or refused, with the exceptions that
// the header names.
#include "pkce/token_file.h"

#include <varnkivo/kivo_exception.h>

#include <typeinfo>

#include "device.h"
#include "property.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  RequireSandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  static const varnkivo::TokenFile file("fuzz");
  WriteFile(file.GetTokenFilePath(), std::string(reinterpret_cast<const char*>(data), size));
  try {
    const varnkivo::TokenSet tokens = file.Read();
    for (const char* name : {"access_token", "id_token", "refresh_token"}) {
      try {
        tokens.GetPkceTokenVal(name);
      } catch (const varnkivo::KivoException&) {
      }
    }
    const std::int64_t end = tokens.GetExpiredAt();
    Require(tokens.IsTokenExpired(end + 1) && !tokens.IsTokenExpired(end), "the second of the expiry is the last one");
  } catch (const varnkivo::KivoException& error) {
    Require(error.GetCode() == KIVO_ERR_BAD_JSON || error.GetCode() == KIVO_ERR_TOKEN, "a code that is promised",
            std::to_string(error.GetCode()));
  } catch (const std::bad_cast&) {
  }
  return 0;
}
