// What a token file says, and what of tokens a log says. Values are random: a set is known by what it is made of.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace faults {

enum class TokenState { kAbsent, kOld, kNew, kBroken };

/// kNew: a whole set other than the old one.
TokenState StateOf(const std::optional<std::string>& now, const std::optional<std::string>& old);
std::string RefreshToken(const std::string& content);  ///< "" where there is none
std::vector<std::string> TokensIn(const std::string& content);

/// The first word of `log` that looks like more than ten characters of a token, code or verifier; "" where none does.
std::string FindToken(const std::string& log);

}  // namespace faults
