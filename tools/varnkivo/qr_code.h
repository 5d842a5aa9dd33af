// A text as a picture that a phone can read from a terminal.
#pragma once

#include <string>

namespace kivotool {

class QrCode {
 public:
  explicit QrCode(const std::string& text);

  /// Two rows of dots a line, with a quiet border, in UTF-8; empty where the text is too long for a QR code.
  const std::string& Picture() const { return picture_; }
  int Width() const { return width_; }  ///< in columns of the terminal

 private:
  std::string picture_;
  int width_ = 0;
};

}  // namespace kivotool
