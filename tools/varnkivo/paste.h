// What a sign-in by browser is answered with, from standard input.
#pragma once

#include <string>

namespace kivotool {

constexpr int kMinutesToPaste = 10;  ///< as long as the account centre keeps a sign-in open
constexpr char kPastePrompt[] = "Then paste the address that it leads to, or the code it shows: ";

/// Waits for the address or the code and returns the code. On a terminal a mistyped one is asked for again; elsewhere,
/// when the time is up, and where somebody has refused, a Failure is thrown.
std::string PastedCode(const std::string& state, const std::string& again);

}  // namespace kivotool
