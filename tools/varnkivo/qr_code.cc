// Draws with half blocks. Dark dots are drawn as the background of a terminal with light text and dark ground, which
// most have; readers take the inverse too.
#include "qr_code.h"

#include <qrencode.h>

#include <memory>

namespace kivotool {
namespace {

constexpr int kBorder = 2;  // dots; the standard wants 4, phones are content with this

struct CodeFree {
  void operator()(QRcode* code) const noexcept { QRcode_free(code); }
};

bool IsLight(const QRcode& code, int x, int y) {
  const bool inside = x >= 0 && y >= 0 && x < code.width && y < code.width;
  return !inside || (code.data[y * code.width + x] & 1) == 0;
}

}  // namespace

QrCode::QrCode(const std::string& text) {
  const std::unique_ptr<QRcode, CodeFree> code(QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_L));
  if (!code) return;
  width_ = code->width + 2 * kBorder;
  for (int y = -kBorder; y < code->width + kBorder; y += 2) {
    for (int x = -kBorder; x < code->width + kBorder; ++x) {
      const bool upper = IsLight(*code, x, y), lower = IsLight(*code, x, y + 1);
      picture_ += upper ? (lower ? "\u2588" : "\u2580") : (lower ? "\u2584" : " ");
    }
    picture_ += '\n';
  }
}

}  // namespace kivotool
