// The string list: a growing array of copies. Texts live in a deque, so that a pointer got from the list stays valid
// while the list grows.
#include <deque>
#include <string>

#include "error.h"

struct VLIBSzList {
  std::deque<std::string> texts;
};

using varnplatform::Fail;
using varnplatform::Guarded;

VLIBSzList* VLIBCSzListAlloc(int /*capacity*/) {
  VLIBSzList* list = nullptr;
  Guarded([&] {
    list = new VLIBSzList;
    return 0;
  });
  return list;
}

int VLIBCSzListPush(VLIBSzList* list, const char* text) {
  if (!list || !text) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    list->texts.emplace_back(text);
    return 0;
  });
}

const char* VLIBCSzListGet(const VLIBSzList* list, int index) {
  if (!list) {
    Fail(VLIB_ERR_BAD_PARAMETER);
    return nullptr;
  }
  if (index < 0 || static_cast<std::size_t>(index) >= list->texts.size()) return nullptr;
  return list->texts[static_cast<std::size_t>(index)].c_str();
}

int VLIBCSzListCount(const VLIBSzList* list) { return list ? static_cast<int>(list->texts.size()) : 0; }

void VLIBCSzListFree(VLIBSzList* list) { delete list; }
