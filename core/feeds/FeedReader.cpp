#include "feeds/FeedReader.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <span>
#include <thread>

#include "base/Clock.h"
#include "base/Error.h"
#include "base/FileDescriptor.h"
#include "codecs/Modules.h"
#include "config/Lenslark.h"
#include "devices/CommandError.h"
#include "graphics/Compositor.h"
#include "lenslark/frame_file.h"

namespace lenslark::FeedReader {
namespace {

/// Far beyond what a writer offers, far below what a file of holes can claim.
constexpr std::uint64_t maxPixelBytes = std::uint64_t{256} << 20;

/// A writer needs about a millisecond for a frame and publishes one every few: a copy that keeps
/// failing for this long is no accident of timing.
constexpr int attempts = 100;
constexpr std::chrono::milliseconds pauseBetweenAttempts{1};

/// An open frame file. It is read with `pread` and never mapped: a file that is cut short while it
/// is read then gives fewer bytes, not a signal.
struct FeedFile {
  FileDescriptor file;
  std::uint64_t size = 0;
  LLFrameHeader header{};

  bool readHeader() noexcept {
    const std::span<LLFrameHeader, 1> target(&header, 1);
    return readAt(file, std::as_writable_bytes(target), 0) == sizeof(header) &&
           header.magic == LL_FRAME_MAGIC;
  }
  bool hasSlots() const noexcept { return header.version >= LL_FRAME_VERSION; }
  std::uint32_t front() const noexcept { return header.frontSlot & 1U; }
  const LLFrameSlot& frontSlot() const noexcept { return header.slots[front()]; }
};

std::optional<FeedFile> open(const std::string& path) {
  FeedFile feed;
  feed.file = FileDescriptor::tryOpen(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  struct stat status {};
  if (!feed.file || ::fstat(feed.file.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
      status.st_size < off_t{LL_FRAME_DATA_OFFSET}) {
    return std::nullopt;
  }
  feed.size = static_cast<std::uint64_t>(status.st_size);
  if (!feed.readHeader()) return std::nullopt;
  return feed;
}

/// Where a frame lies and the counter that tells whether it is being written.
struct FrameLocation {
  std::uint64_t counter = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bytesPerRow = 0;
  std::uint64_t offset = 0;

  friend bool operator==(const FrameLocation&, const FrameLocation&) = default;
};

/// Nothing when the pixels' place is beyond all numbers.
std::optional<FrameLocation> locate(const FeedFile& feed, std::uint32_t slotNumber) noexcept {
  const LLFrameHeader& head = feed.header;
  if (!feed.hasSlots()) {
    return FrameLocation{head.sequence, head.width, head.height, head.bytesPerRow,
                         LL_FRAME_DATA_OFFSET};
  }
  const LLFrameSlot& slot = head.slots[slotNumber];
  if (head.slotCapacity > std::numeric_limits<std::uint64_t>::max() - LL_FRAME_DATA_OFFSET) {
    return std::nullopt;
  }
  return FrameLocation{slot.seq, slot.width, slot.height, slot.bytesPerRow,
                       LL_FRAME_DATA_OFFSET + slotNumber * head.slotCapacity};
}

/// Whether there can be such a frame in a file of `fileSize` bytes.
bool isPossible(const FrameLocation& frame, std::uint64_t fileSize) noexcept {
  const std::uint64_t bytes = std::uint64_t{frame.bytesPerRow} * frame.height;
  return frame.width != 0 && frame.height != 0 &&
         std::uint64_t{frame.width} * LL_FRAME_BYTES_PER_PIXEL <= frame.bytesPerRow &&
         bytes <= maxPixelBytes && bytes <= fileSize && frame.offset <= fileSize - bytes;
}

std::shared_ptr<PixelBuffer> copyPixels(const FeedFile& feed, const FrameLocation& frame) {
  const Size size{static_cast<int>(frame.width), static_cast<int>(frame.height)};
  auto pixels = std::make_shared<PixelBuffer>(size, false, std::size_t{frame.bytesPerRow});
  const std::size_t bytes = std::size_t{frame.bytesPerRow} * frame.height;
  const std::span<std::uint8_t> target(pixels->span().data, bytes);
  const ssize_t count =
      readAt(feed.file, std::as_writable_bytes(target), static_cast<off_t>(frame.offset));
  return count == static_cast<ssize_t>(bytes) ? pixels : nullptr;
}

std::shared_ptr<PixelBuffer> latestFrame(FeedFile& feed) {
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (attempt > 0) {
      std::this_thread::sleep_for(pauseBetweenAttempts);
      if (!feed.readHeader()) return nullptr;
    }
    const std::uint32_t front = feed.front();
    const std::optional<FrameLocation> frame = locate(feed, front);
    if (!frame) return nullptr;
    if (frame->counter % 2 != 0) continue;
    // A frame that is whole but not in front yet may be followed by the one before it: the front is
    // looked at again behind the counter.
    if (!feed.readHeader()) return nullptr;
    if (feed.front() != front || locate(feed, front) != frame) continue;
    std::shared_ptr<PixelBuffer> pixels;
    if (isPossible(*frame, feed.size)) pixels = copyPixels(feed, *frame);
    // Whole, and of one frame, only if its counter stands where it stood. So must its description,
    // which the first look may have caught a moment before or after the counter.
    if (!feed.readHeader()) return nullptr;
    if (locate(feed, front) == frame) return pixels;
  }
  return nullptr;
}

std::shared_ptr<PixelBuffer> downscale(const PixelBuffer& image, int maxSide) {
  const Size size = image.size();
  const double scale = double(maxSide) / double(size.longerSide());
  const auto side = [scale](int length) { return std::max(static_cast<int>(length * scale), 1); };
  auto smaller = std::make_shared<PixelBuffer>(Size{side(size.width), side(size.height)});
  return Compositor::scale(image.view(), smaller->span()) ? smaller : nullptr;
}

int saturated(std::uint32_t value) noexcept {
  return static_cast<int>(std::min<std::uint32_t>(value, std::numeric_limits<int>::max()));
}

std::optional<double> secondsSince(std::uint64_t heartbeat) noexcept {
  const std::uint64_t now = Clock::uptimeNanoseconds();
  if (heartbeat == 0 || heartbeat > now) return std::nullopt;
  return static_cast<double>(now - heartbeat) / 1e9;
}

}  // namespace

bool Info::writerAlive() const noexcept {
  // A process of somebody else refuses the signal, but exists.
  return writerPid >= 1 && (::kill(writerPid, 0) == 0 || errno == EPERM);
}

std::optional<Info> info(const std::string& path) {
  const std::optional<FeedFile> feed = open(path);
  if (!feed) return std::nullopt;
  const LLFrameHeader& head = feed->header;
  if (head.writerPid > std::uint32_t{std::numeric_limits<pid_t>::max()}) {
    throw Error(
        fmt::format("{}: the writer's process id is {}, which no process has; remove the file",
                    path, static_cast<std::int32_t>(head.writerPid)));
  }
  Info info{.path = path,
            .version = head.version,
            .width = saturated(head.width),
            .height = saturated(head.height),
            .fill = head.sceneMode == LLSceneModeFill,
            .writerPid = static_cast<pid_t>(head.writerPid),
            .sequence = head.sequence,
            .heartbeatAge = secondsSince(head.heartbeat)};
  if (feed->hasSlots()) {
    const LLFrameSlot& slot = feed->frontSlot();
    info.width = saturated(slot.width);
    info.height = saturated(slot.height);
    info.content = contentKind(head.contentKind).value_or(ContentKind::live);
    info.sequence = slot.seq * 2 + feed->front();
  }
  return info;
}

std::shared_ptr<PixelBuffer> image(const std::string& path, std::optional<int> maxSide) {
  std::optional<FeedFile> feed = open(path);
  if (!feed) return nullptr;
  std::shared_ptr<PixelBuffer> frame = latestFrame(*feed);
  if (!frame || !maxSide || *maxSide >= frame->size().longerSide()) return frame;
  return downscale(*frame, *maxSide);
}

void writePNG(const PixelBuffer& image, const std::string& path) {
  try {
    const std::vector<std::byte> png = Modules::imageCodec().encodePng(image.view());
    constexpr mode_t everybody = 0666;
    const FileDescriptor file = FileDescriptor::open(path, O_WRONLY | O_CREAT | O_TRUNC, everybody);
    writeAll(file, png, path);
  } catch (const std::exception&) {
    throw CommandError("cannot write " + path);
  }
}

std::optional<std::vector<std::byte>> pngData(const PixelBuffer& image) {
  try {
    return Modules::imageCodec().encodePng(image.view());
  } catch (const Error&) {
    return std::nullopt;
  }
}

std::optional<std::string> path(const ConnectedDevice& device, CameraPosition camera) {
  for (const std::string& candidate :
       {device.feedPath(camera), device.feedPath(std::nullopt), Lenslark::sharedFramePath()}) {
    struct stat status {};
    if (::lstat(candidate.c_str(), &status) == 0 && S_ISREG(status.st_mode)) return candidate;
  }
  return std::nullopt;
}

}  // namespace lenslark::FeedReader
