#include "sources/QrCode.h"

#include <qrencode.h>

#include <memory>

#include "base/Error.h"

namespace lenslark {

QrCode QrCode::encode(const std::string& text) {
  constexpr int border = 1;
  constexpr int smallestVersionThatFits = 0;
  const std::unique_ptr<QRcode, decltype(&QRcode_free)> encoded(
      QRcode_encodeString8bit(text.c_str(), smallestVersionThatFits, QR_ECLEVEL_M), &QRcode_free);
  if (!encoded) throw Error("cannot make a QR code of \"" + text + "\"");

  QrCode code;
  code.side = encoded->width + 2 * border;
  code.dark.resize(static_cast<std::size_t>(code.side) * static_cast<std::size_t>(code.side));
  for (int y = 0; y < encoded->width; ++y) {
    for (int x = 0; x < encoded->width; ++x) {
      const bool dark = (encoded->data[y * encoded->width + x] & 1) != 0;
      code.dark[static_cast<std::size_t>((y + border) * code.side + x + border)] = dark ? 1 : 0;
    }
  }
  return code;
}

}  // namespace lenslark
