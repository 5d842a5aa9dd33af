// A text as a picture that a phone can read from a terminal.
#pragma once

#include <string>

namespace kivotool {

/// Two rows of dots a line, with a quiet border; empty where the text is too long for a QR code.
std::string QrCode(const std::string& text);

}  // namespace kivotool
