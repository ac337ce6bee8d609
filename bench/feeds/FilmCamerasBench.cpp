// What it costs that ten cameras show one film, beside decoding it and copying each picture ten
// times into plain memory.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "codecs/Modules.h"
#include "feeds/FeedOutput.h"
#include "sources/SourceHub.h"
#include "support/Clips.h"
#include "support/FakeSources.h"
#include "support/Row.h"
#include "support/TemporaryDirectory.h"

namespace lenslark::bench {
namespace {

constexpr int cameras = 10;
constexpr int rounds = 5;
constexpr int maxSide = 2048;

/// Plays a film once as fast as it goes; `show` gets each picture.
template <typename Show>
void play(const std::string& path, Show&& show) {
  const auto film = Modules::videoCodec().open(path, maxSide);
  while (const auto frame = film->next()) show(frame->picture);
}

/// The copies that every camera needs at least: from one picture to where its feed holds it.
class Copies {
 public:
  explicit Copies(Size size) : picture_(size, true) {
    for (int camera = 0; camera < cameras; ++camera) {
      targets_.push_back(std::make_unique<PixelBuffer>(size, true));
    }
  }
  void make() {
    const PixelView view = picture_.view();
    const auto bytes =
        static_cast<std::size_t>(view.stride) * static_cast<std::size_t>(view.size.height);
    for (const auto& target : targets_) {
      std::memcpy(target->span().data, view.data, bytes);
      benchmark::ClobberMemory();
    }
  }

 private:
  PixelBuffer picture_;
  std::vector<std::unique_ptr<PixelBuffer>> targets_;
};

void tenCameras(benchmark::State& state) {
  constexpr const char* what = "a second of 1080p H.264 on ten cameras";
  if (std::system("command -v ffmpeg >/dev/null") != 0) {
    return skip(state, what, "ffmpeg not installed");
  }
  const TemporaryDirectory directory;
  const std::string path =
      Clips::make(directory / "film.mkv",
                  "-f lavfi -i testsrc2=size=1920x1080:rate=30:duration=1 -c:v libx264 "
                  "-preset veryfast -pix_fmt yuv420p");
  auto controls = std::make_shared<ManualSource::Controls>();
  const auto hub = std::make_shared<SourceHub>("bench", std::make_unique<ManualSource>(controls));
  hub->start();
  while (!controls->running()) std::this_thread::yield();
  std::vector<std::shared_ptr<FeedOutput>> outputs;
  for (int camera = 0; camera < cameras; ++camera) {
    outputs.push_back(std::make_shared<FeedOutput>((directory / std::to_string(camera)).string(),
                                                   LLCameraDevice, maxSide));
    hub->add(outputs.back());
  }
  Copies copies({1920, 1080});

  const auto ours = [&] { play(path, [&](const FramePtr& picture) { controls->emit(picture); }); };
  ours();
  std::vector<double> costs;
  std::vector<double> allowed;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      int pictures = 0;
      costs.push_back(costOf(processCpu, 1, ours));
      const double decoding =
          costOf(processCpu, 1, [&] { play(path, [&](const FramePtr&) { ++pictures; }); });
      const double copying = costOf(processCpu, pictures, [&] { copies.make(); });
      allowed.push_back(decoding + 1.2 * copying * pictures);
    }
  }
  report(state, {what, "decoding it and ten times 1.2 copies", 1}, median(costs), median(allowed));
  hub->stop().wait();
}

LENSLARK_ROW(tenCameras);

}  // namespace
}  // namespace lenslark::bench
