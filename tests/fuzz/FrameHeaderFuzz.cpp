// Any header at a feed's path, in a file of any length: it is read or refused, and a writer that
// takes the file over is read back. The input is the file's length and then its beginning.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>

#include "base/Error.h"
#include "base/FileDescriptor.h"
#include "feeds/FeedReader.h"
#include "feeds/SharedFrameWriter.h"
#include "support/NumberedPicture.h"

namespace {

using namespace lenslark;

constexpr std::uint32_t longest = 1 << 20;
constexpr Size frameSize{5, 3};

const std::string& feedPath() {
  static const std::string path = "/dev/shm/lenslark-fuzz-" + std::to_string(::getpid()) + ".shm";
  static const int cleanup = std::atexit([] { ::unlink(path.c_str()); });
  static_cast<void>(cleanup);
  return path;
}

void plant(std::uint32_t length, std::span<const std::uint8_t> bytes) {
  const FileDescriptor file =
      FileDescriptor::open(feedPath(), O_RDWR | O_CREAT | O_TRUNC, S_IRUSR | S_IWUSR);
  writeAll(file, std::as_bytes(bytes), feedPath());
  if (::ftruncate(file.get(), static_cast<off_t>(length)) != 0) std::abort();
}

/// A slot that is being written is waited for: too long for thousands of them.
void settle(std::span<std::uint8_t> bytes) {
  for (const std::size_t counter :
       {offsetof(LLFrameHeader, sequence), offsetof(LLFrameHeader, slots[0]),
        offsetof(LLFrameHeader, slots[1])}) {
    if (counter < bytes.size()) bytes[counter] &= 0xFE;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::uint32_t length = 0;
  if (size < sizeof(length)) return 0;
  std::memcpy(&length, data, sizeof(length));
  std::string beginning(reinterpret_cast<const char*>(data) + sizeof(length),
                        size - sizeof(length));
  const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(beginning.data()),
                                      beginning.size());
  settle(bytes);
  plant(length % longest, bytes);

  try {
    FeedReader::info(feedPath());
  } catch (const Error&) {
    // A negative writer.
  }
  FeedReader::image(feedPath());
  FeedReader::image(feedPath(), 3);

  SharedFrameWriter writer(feedPath(), 8, 8, LLCameraDevice);
  const auto picture = numberedPicture(frameSize);
  if (!writer.write(*picture, ContentKind::still)) std::abort();
  const auto image = FeedReader::image(feedPath());
  if (!image || image->size() != frameSize) std::abort();
  if (pixelAt(image->view(), 4, 2) != numberedPixel(4, 2)) std::abort();
  return 0;
}
