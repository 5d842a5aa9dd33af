// Reads form text ("a=1&b=2"). Only the one canonical spelling is taken: unreserved characters as they are, every
// other byte as "%" and two upper-case digits, one "=" per pair, no empty names. What a lenient server would
// let pass is told as a problem, so that a client that escapes wrongly is found out.
#pragma once

#include <string>

#include "sim/message.h"

namespace kivosim {

/// Fills `pairs`, decoded. Returns what is wrong with `text`, or "" (then, and only then, `pairs` is all of it).
/// Empty text has no pairs.
std::string ParseForm(const std::string& text, Pairs& pairs);
/// The same for what browsers write: "+" is a blank, any byte may be escaped or not. Never complains.
Pairs ParseBrowserForm(const std::string& text);
/// The canonical spelling.
std::string FormText(const Pairs& pairs);

}  // namespace kivosim
