// Files that writers which were killed have left beside their targets.
#ifndef VARNKIVO_PKCE_LEFTOVERS_H_
#define VARNKIVO_PKCE_LEFTOVERS_H_

#include <string>

namespace varnkivo {

/// Removes the regular files of `directory` whose names are `prefix`, six characters of mkstemp(3) and `suffix`, that
/// are older than a minute and locked by nobody. What cannot be removed stays.
void RemoveLeftovers(const std::string& directory, const std::string& prefix, const std::string& suffix);

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_LEFTOVERS_H_
