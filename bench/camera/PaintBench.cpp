// What a picture costs the program that takes it from the camera.
#include <fcntl.h>
#include <libyuv.h>
#include <linux/videodev2.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "feeds/SharedFrameWriter.h"
#include "support/NumberedPicture.h"
#include "support/Row.h"

extern "C" {
#include "Painter.h"
#include "Real.h"
}

namespace lenslark::bench {
namespace {

constexpr Size frameSize{1280, 960};
constexpr std::size_t luma = std::size_t{1280} * 960;
constexpr int rowBytes = 1280 * 4;

/// A feed in memory with one frame, which the painter finds.
class LivingFeed {
 public:
  LivingFeed() : writer_(path, frameSize.width, frameSize.height, LLCameraBack) {
    writer_.write(*numberedPicture(frameSize), ContentKind::live);
    ::setenv("LENSLARK_SHM", path.c_str(), 1);
    kernelsSelect();
    feedConfigure();
    realResolve();
  }
  ~LivingFeed() { std::filesystem::remove(path); }
  LivingFeed(const LivingFeed&) = delete;
  LivingFeed& operator=(const LivingFeed&) = delete;

  void beat() { writer_.heartbeat(); }

  const std::string path = "/dev/shm/lenslark-bench-camera-" + std::to_string(::getpid()) + ".shm";

 private:
  SharedFrameWriter writer_;
};

/// As safe as the painter: pread() copies what another process may cut short at any moment.
void copyAndConvert(const FileDescriptor& file, std::vector<std::uint8_t>& frame,
                    std::vector<std::uint8_t>& picture) {
  if (::pread(file.get(), frame.data(), frame.size(), LL_FRAME_DATA_OFFSET) !=
      static_cast<ssize_t>(frame.size())) {
    std::abort();
  }
  std::uint8_t* y = picture.data();
  libyuv::ARGBToI420(frame.data(), rowBytes, y, frameSize.width, y + luma, frameSize.width / 2,
                     y + luma + luma / 4, frameSize.width / 2, frameSize.width, frameSize.height);
}

void paintOne(benchmark::State& state) {
  LivingFeed feed;
  const auto painter = std::make_unique<Painter>();
  const PictureFormat format{V4L2_PIX_FMT_YUV420, frameSize.width, frameSize.height, false};
  std::vector<std::uint8_t> frame(luma * 4);
  std::vector<std::uint8_t> picture(luma * 3 / 2);
  const FileDescriptor file = FileDescriptor::open(feed.path, O_RDONLY);
  compare(
      state,
      {"a picture from the camera, 1280x960 YU12", "a safe copy of the frame and libyuv", 1.3}, {},
      [&] {
        feed.beat();
        paint(painter.get(), LLCameraBack, &format, picture.data(), nullptr);
      },
      [&] { copyAndConvert(file, frame, picture); });
  if (painter->lastSign == 0) std::abort();  // What was painted was the placeholder.
}
LENSLARK_ROW(paintOne);

}  // namespace
}  // namespace lenslark::bench
