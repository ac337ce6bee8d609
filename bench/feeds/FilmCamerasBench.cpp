// What it costs that ten cameras show one film, beside decoding it and copying a picture twelve
// times into plain shared memory whenever one was decoded: for each camera as much as 1.2 copies
// take. The copies are made while the decoder goes on, as the cameras' pictures are: each makes the
// other's memory slower.

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "codecs/Modules.h"
#include "feeds/FeedOutput.h"
#include "feeds/PlainSlots.h"
#include "sources/SourceHub.h"
#include "support/Clips.h"
#include "support/FakeSources.h"
#include "support/Row.h"
#include "support/TemporaryDirectory.h"

namespace lenslark::bench {
namespace {

constexpr int cameras = 10;
constexpr int copiesAllowed = 12;
constexpr int rounds = 15;
constexpr int maxSide = 2048;

/// Plays a film once as fast as it goes; `show` gets each picture.
template <typename Show>
void play(const std::string& path, Show&& show) {
  const auto film = Modules::videoCodec().open(path, maxSide);
  while (const auto frame = film->next()) show(frame->picture);
}

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
  constexpr Size fullHd{1920, 1080};
  const PixelBuffer copied(fullHd, true);
  std::vector<std::unique_ptr<PlainSlots>> slots;
  for (int copy = 0; copy < copiesAllowed; ++copy) {
    slots.push_back(std::make_unique<PlainSlots>(fullHd));
  }

  const auto ours = [&] { play(path, [&](const FramePtr& picture) { controls->emit(picture); }); };
  const auto peer = [&] {
    play(path, [&](const FramePtr&) {
      for (const auto& slot : slots) slot->copy(copied);
    });
  };
  ours();
  peer();
  std::vector<double> costs;
  std::vector<double> allowed;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      costs.push_back(costOf(processCpu, 1, ours));
      allowed.push_back(costOf(processCpu, 1, peer));
    }
  }
  report(state, {what, "decoding it and ten times 1.2 copies", 1}, median(costs), median(allowed));
  hub->stop().wait();
}

LENSLARK_ROW(tenCameras);

}  // namespace
}  // namespace lenslark::bench
