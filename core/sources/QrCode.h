#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lenslark {

/// The modules of a QR code, with the one module of white around it that belongs to the code.
struct QrCode {
  int side = 0;                    ///< In modules; the code is square.
  std::vector<std::uint8_t> dark;  ///< side * side, row by row: 1 for a dark module.

  bool isDark(int x, int y) const noexcept {
    return dark[static_cast<std::size_t>(y * side + x)] != 0;
  }

  /// Error correction level M. **Fails** with Error when the text is too long for a code.
  static QrCode encode(const std::string& text);
};

}  // namespace lenslark
