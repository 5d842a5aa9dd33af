// Asks the platform for the user-agent text of this product. Touches nothing.
// A platform without a text is not an error: the request then goes out with what the buffer held.
#include "internal/guard.h"
#include "internal/log.h"
#include "varn/platform.h"
#include "varnkivo.h"

namespace {

constexpr const char* kSource = "kivo_agent_name_get";

}  // namespace

int VARNKIVOUserAgentNameGet(char* buf, int size) {
  return varnkivo::Guarded(kSource, [&] {
    if (!buf || size < 1) {
      VARNKIVOErrSet(KIVO_ERR_BAD_PARAM);
      return -1;
    }
    if (VLIBLuinfoUserAgentGet("kivo", buf, size) < 0)
      varnkivo::LogError(kSource, "VLIBLuinfoUserAgentGet failed, varnerr=[0x%04X %s:%d]", VLIBCErrGet(),
                         VLIBCErrorGetFile(), VLIBCErrorGetLine());
    return 0;
  });
}
