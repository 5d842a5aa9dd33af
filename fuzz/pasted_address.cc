// What a person pastes back after a sign-in by browser: a code comes out of it only with this sign-in's own state.
#include "authorization.h"
#include "failure.h"
#include "property.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  const std::string state = "d1e2c3";
  const std::string pasted(reinterpret_cast<const char*>(data), size);
  try {
    const std::string code = kivotool::CodeFromPasted(pasted, state, "varnkivo login");
    Require(!code.empty(), "a code has a text", pasted);
    if (pasted.find('?') == std::string::npos) {
      Require(pasted.find(code) != std::string::npos, "a code alone is taken as it is", pasted);
    } else {
      Require(pasted.find("state") != std::string::npos || pasted.find('%') != std::string::npos,
              "a state is asked for", pasted);
    }
  } catch (const kivotool::Failure&) {
  }
  return 0;
}
