// Owners for what the host platform allocates.
#ifndef VARNKIVO_INTERNAL_PLATFORM_HANDLES_H_
#define VARNKIVO_INTERNAL_PLATFORM_HANDLES_H_

#include "varn/platform.h"

#include <memory>

namespace varnkivo {

struct HashFree {
  void operator()(VLIBSzHash* hash) const noexcept { VLIBCSzHashFree(hash); }
};
struct ListFree {
  void operator()(VLIBSzList* list) const noexcept { VLIBCSzListFree(list); }
};
using Hash = std::unique_ptr<VLIBSzHash, HashFree>;
using List = std::unique_ptr<VLIBSzList, ListFree>;

}  // namespace varnkivo

#endif  // VARNKIVO_INTERNAL_PLATFORM_HANDLES_H_
