// The cache of what the account host says about a package. It lies where every user can put something.
#ifndef VARNKIVO_PKCE_PACKAGE_CONFIG_FILE_H_
#define VARNKIVO_PKCE_PACKAGE_CONFIG_FILE_H_

#include <json/json.h>

#include <optional>
#include <string>

namespace varnkivo {

/// The JSON object in `path`; nothing where there is none, or where somebody else may have put it there: a link, a file
/// with a second name, of another user than root, the account service and this one, or that others may write to.
std::optional<Json::Value> ReadTrustedConfig(const std::string& path);

/// Puts `config` into the place of `path`: mode 0644, owner 934:934 where this process may give it away. False where
/// that fails; `path` is then as it was.
bool WriteTrustedConfig(const std::string& path, const Json::Value& config);

}  // namespace varnkivo

#endif  // VARNKIVO_PKCE_PACKAGE_CONFIG_FILE_H_
