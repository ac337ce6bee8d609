#include "base/Base64.h"

#include <algorithm>

#include "base/LazyCrypto.h"

namespace lenslark::Base64 {

void append(std::span<const std::byte> bytes, std::string& text) {
  // Whole groups of three, so that each piece is a part of the whole text; the library counts in
  // int.
  constexpr std::size_t pieceSize = std::size_t{3} << 20U;
  for (; !bytes.empty(); bytes = bytes.subspan(std::min(bytes.size(), pieceSize))) {
    const auto piece = bytes.first(std::min(bytes.size(), pieceSize));
    const std::size_t written = (piece.size() + 2) / 3 * 4;
    const std::size_t end = text.size();
    text.resize(end + written + 1);  // The library ends its text with a zero byte.
    LazyCrypto::shared().encodeBlock(reinterpret_cast<unsigned char*>(text.data() + end),
                                     reinterpret_cast<const unsigned char*>(piece.data()),
                                     static_cast<int>(piece.size()));
    text.resize(end + written);
  }
}

}  // namespace lenslark::Base64
