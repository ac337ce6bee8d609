#pragma once

#include <cstring>
#include <string>

#include "base/FileDescriptor.h"
#include "lenslark/frame_file.h"
#include "support/NumberedPicture.h"

namespace lenslark {

/// The bytes of a frame file at one moment.
class FrameFileCopy {
 public:
  explicit FrameFileCopy(const std::string& path) : bytes_(readFile(path)) {
    std::memcpy(&header_, bytes_.data(), sizeof(header_));
  }

  const LLFrameHeader& header() const { return header_; }
  std::size_t size() const { return bytes_.size(); }

  /// The frame that a slot's description tells of.
  PixelView frame(std::uint32_t slot) const {
    const LLFrameSlot& description = header_.slots[slot];
    const char* pixels = bytes_.data() + LL_FRAME_DATA_OFFSET + slot * header_.slotCapacity;
    return {reinterpret_cast<const std::uint8_t*>(pixels),
            {static_cast<int>(description.width), static_cast<int>(description.height)},
            static_cast<std::ptrdiff_t>(description.bytesPerRow)};
  }
  PixelView frontFrame() const { return frame(header_.frontSlot); }

 private:
  std::string bytes_;
  LLFrameHeader header_{};
};

/// A frame file's beginning as a test wants it, followed by nothing.
inline std::string headerBytes(const LLFrameHeader& header) {
  std::string bytes(LL_FRAME_DATA_OFFSET, '\0');
  std::memcpy(bytes.data(), &header, sizeof(header));
  return bytes;
}

}  // namespace lenslark
