#include "codecs/image/PngEncoder.h"

#include <libdeflate.h>

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "base/Error.h"
#include "codecs/image/RgbaPixels.h"
#include "graphics/Compositor.h"

namespace lenslark::PngEncoder {
namespace {

using Bytes = std::vector<std::byte>;

constexpr std::array<std::uint8_t, 8> signature{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

void append(Bytes& file, std::span<const std::uint8_t> bytes) {
  const auto added = std::as_bytes(bytes);
  file.insert(file.end(), added.begin(), added.end());
}

void appendNumber(Bytes& file, std::uint32_t number) {
  for (const int shift : {24, 16, 8, 0}) {
    file.push_back(static_cast<std::byte>(number >> shift & 255U));
  }
}

/// The place of a chunk whose content is appended next.
std::size_t beginChunk(Bytes& file, std::string_view type) {
  const std::size_t start = file.size();
  appendNumber(file, 0);
  for (const char letter : type) file.push_back(static_cast<std::byte>(letter));
  return start;
}

/// Fills in the length, and appends the check sum of type and content.
void endChunk(Bytes& file, std::size_t start) {
  constexpr std::size_t lengthSize = 4;
  constexpr std::size_t headSize = 8;
  Bytes length;
  appendNumber(length, static_cast<std::uint32_t>(file.size() - start - headSize));
  std::copy(length.begin(), length.end(), file.begin() + static_cast<std::ptrdiff_t>(start));
  appendNumber(file, libdeflate_crc32(0, file.data() + start + lengthSize,
                                      file.size() - start - lengthSize));
}

/// Each row as its differences from the pixel to the left, which compress better than the pixels:
/// the one filter for all rows costs a fraction of trying several, and is hardly ever worse.
std::vector<std::uint8_t> filtered(const std::vector<std::uint8_t>& pixels, Size size,
                                   std::size_t bands) {
  constexpr std::uint8_t differenceToTheLeft = 1;
  const std::size_t rowBytes = static_cast<std::size_t>(size.width) * bands;
  std::vector<std::uint8_t> rows((rowBytes + 1) * static_cast<std::size_t>(size.height));
  const std::uint8_t* from = pixels.data();
  std::uint8_t* to = rows.data();
  for (int y = 0; y < size.height; ++y, from += rowBytes) {
    *to++ = differenceToTheLeft;
    for (std::size_t i = 0; i < bands; ++i) *to++ = from[i];
    for (std::size_t i = bands; i < rowBytes; ++i) {
      *to++ = static_cast<std::uint8_t>(from[i] - from[i - bands]);
    }
  }
  return rows;
}

using Compressor = std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)>;

Compressor compressor(int level) {
  Compressor made(libdeflate_alloc_compressor(level), libdeflate_free_compressor);
  if (!made) throw Error("the picture cannot be written as PNG: out of memory");
  return made;
}

/// Whether it would hardly get smaller, told by pieces from all over it. Noise takes long to
/// compress, for next to nothing.
bool isNoise(const Compressor& compressor, std::span<const std::uint8_t> data) {
  constexpr std::size_t pieces = 12;
  constexpr std::size_t pieceSize = std::size_t{8} << 10U;
  constexpr std::size_t worthIt = pieceSize / 8 * 7;
  if (data.size() < pieces * pieceSize) return false;
  std::array<std::byte, worthIt> compressed;
  for (std::size_t piece = 0; piece < pieces; ++piece) {
    const auto start = (data.size() - pieceSize) / (pieces - 1) * piece;
    const std::size_t written = libdeflate_deflate_compress(
        compressor.get(), data.data() + start, pieceSize, compressed.data(), compressed.size());
    if (written > 0) return false;
  }
  return true;
}

void appendCompressed(Bytes& file, const std::vector<std::uint8_t>& data) {
  constexpr int stored = 0;
  constexpr int fastest = 1;
  Compressor chosen = compressor(fastest);
  if (isNoise(chosen, data)) chosen = compressor(stored);
  const std::size_t start = file.size();
  file.resize(start + libdeflate_zlib_compress_bound(chosen.get(), data.size()));
  const std::size_t written = libdeflate_zlib_compress(chosen.get(), data.data(), data.size(),
                                                       file.data() + start, file.size() - start);
  if (written == 0) throw Error("the picture cannot be written as PNG: it cannot be compressed");
  file.resize(start + written);
}

}  // namespace

std::vector<std::byte> encode(const PixelView& picture) {
  if (picture.size.empty()) throw Error("the picture cannot be written as PNG: it is empty");
  const bool opaque = Compositor::isOpaque(picture);
  const auto pixels = opaque ? RgbaPixels::overBlack(picture) : RgbaPixels::toStraight(picture);
  Bytes file;
  append(file, signature);

  constexpr std::uint8_t bitsPerBand = 8;
  constexpr std::uint8_t colour = 2;
  constexpr std::uint8_t colourAndAlpha = 6;
  std::size_t chunk = beginChunk(file, "IHDR");
  appendNumber(file, static_cast<std::uint32_t>(picture.size.width));
  appendNumber(file, static_cast<std::uint32_t>(picture.size.height));
  // The rest: the only methods of compression and filtering that there are, and no interlacing.
  append(file, std::array<std::uint8_t, 5>{bitsPerBand, opaque ? colour : colourAndAlpha, 0, 0, 0});
  endChunk(file, chunk);

  constexpr std::array<std::uint8_t, 1> perceptual{0};
  chunk = beginChunk(file, "sRGB");
  append(file, perceptual);
  endChunk(file, chunk);

  chunk = beginChunk(file, "IDAT");
  appendCompressed(file, filtered(pixels, picture.size, opaque ? 3 : 4));
  endChunk(file, chunk);

  chunk = beginChunk(file, "IEND");
  endChunk(file, chunk);
  return file;
}

}  // namespace lenslark::PngEncoder
