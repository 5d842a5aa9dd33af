// The string hash: parameters of a request, facts, substitutions. Enumeration is the order of insertion, and requests
// are sent in that order. Entries live in a deque, because callers keep pointers to values while the hash grows.
#include <algorithm>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "error.h"

struct VLIBSzHash {
  std::deque<std::pair<const std::string, std::string>> entries;
  std::unordered_map<std::string_view, std::string*> values;  // keys point into entries
};

namespace {

constexpr int kLargestHint = 4096;  // slots reserved at once; a wild capacity must not take the machine's memory

using varnplatform::Fail;
using varnplatform::Guarded;

void SetEntry(VLIBSzHash& hash, std::string_view key, std::string value) {
  const auto found = hash.values.find(key);
  if (found != hash.values.end()) {
    *found->second = std::move(value);
    return;
  }
  hash.entries.emplace_back(key, std::move(value));
  try {
    hash.values.emplace(hash.entries.back().first, &hash.entries.back().second);
  } catch (...) {
    hash.entries.pop_back();
    throw;
  }
}

}  // namespace

VLIBSzHash* VLIBCSzHashAlloc(int capacity) {
  VLIBSzHash* hash = nullptr;
  const int made = Guarded([&] {
    hash = new VLIBSzHash;
    hash->values.reserve(static_cast<std::size_t>(std::clamp(capacity, 0, kLargestHint)));
    return 0;
  });
  if (made == 0) return hash;
  delete hash;
  return nullptr;
}

void VLIBCSzHashFree(VLIBSzHash* hash) { delete hash; }

int VLIBCSzHashSetValue(VLIBSzHash* hash, const char* key, const char* value) {
  if (!hash || !key || !value) return Fail(VLIB_ERR_BAD_PARAMETER);
  return Guarded([&] {
    SetEntry(*hash, key, value);
    return 0;
  });
}

const char* VLIBCSzHashGetValue(const VLIBSzHash* hash, const char* key) {
  if (!hash || !key) {
    Fail(VLIB_ERR_BAD_PARAMETER);
    return nullptr;
  }
  const auto found = hash->values.find(key);
  return found == hash->values.end() ? nullptr : found->second->c_str();
}

int VLIBCSzHashEnumKey(const VLIBSzHash* hash, VLIBSzList* keys) {
  if (!hash || !keys) return Fail(VLIB_ERR_BAD_PARAMETER);
  for (const auto& entry : hash->entries) {
    if (VLIBCSzListPush(keys, entry.first.c_str()) < 0) return -1;
  }
  return static_cast<int>(hash->entries.size());
}
