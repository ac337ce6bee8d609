#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "devices/ConnectedDevice.h"
#include "graphics/PixelBuffer.h"
#include "sources/FrameSource.h"

/// The read side of a frame file. Anything may lie at a path: what is no whole frame file yields
/// nothing, and no file blocks, is followed or signals. **Threads**: any.
namespace lenslark::FeedReader {

/// Seconds. Older than this, a heartbeat is that of a writer that hangs or is gone.
inline constexpr double liveHeartbeat = 3;

struct Info {
  std::string path;
  std::uint32_t version = 0;
  int width = 0;
  int height = 0;
  ContentKind content = ContentKind::live;
  bool fill = false;
  pid_t writerPid = 0;
  std::uint64_t sequence = 0;
  std::optional<double> heartbeatAge;  ///< Seconds.

  /// Whether the writer's process exists.
  bool writerAlive() const noexcept;
};

/// **Fails** with Error on a negative writer pid.
std::optional<Info> info(const std::string& path);

/// The latest whole frame, its longer side at most `maxSide` when that is given. Nothing beyond
/// 256 MiB of pixels, and nothing while the writer changes every frame before it can be copied.
std::shared_ptr<PixelBuffer> image(const std::string& path, std::optional<int> maxSide = {});

/// **Fails** with CommandError "cannot write PATH".
void writePNG(const PixelBuffer& image, const std::string& path);

/// Nothing when it cannot be encoded.
std::optional<std::vector<std::byte>> pngData(const PixelBuffer& image);

/// The first of a camera's possible feed files that exists.
std::optional<std::string> path(const ConnectedDevice& device, CameraPosition camera);

}  // namespace lenslark::FeedReader
