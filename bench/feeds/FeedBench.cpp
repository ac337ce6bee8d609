// What it costs to put a frame into a feed, beside a plain copy of the same bytes into the same
// kind of memory.

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "feeds/FeedOutput.h"
#include "feeds/PlainSlots.h"
#include "sources/SourceHub.h"
#include "support/FakeSources.h"
#include "support/NumberedPicture.h"
#include "support/Row.h"

namespace lenslark::bench {
namespace {

constexpr Size fullHd{1920, 1080};
constexpr int maxSide = 2048;

/// The path of a feed, which is removed in the end.
class FeedPath {
 public:
  explicit FeedPath(const std::string& name = "feed") : path(memoryPath(name)) {}
  ~FeedPath() { std::filesystem::remove(path); }
  FeedPath(const FeedPath&) = delete;
  FeedPath& operator=(const FeedPath&) = delete;

  const std::string path;
};

void writeFullHd(benchmark::State& state) {
  const FeedPath feed;
  SharedFrameWriter writer(feed.path, maxSide, maxSide, LLCameraDevice);
  PlainSlots plain(fullHd);
  const auto picture = numberedPicture(fullHd);
  compare(
      state, {"a 1080p frame into its feed", "memcpy of the frame", 1.10}, {},
      [&] { writer.write(*picture, ContentKind::live); }, [&] { plain.copy(*picture); });
}

void pageFaults(benchmark::State& state) {
  constexpr int frames = 300;
  const FeedPath feed;
  SharedFrameWriter writer(feed.path, maxSide, maxSide, LLCameraDevice);
  const auto picture = numberedPicture(fullHd);
  const auto faults = [] {
    rusage usage{};
    ::getrusage(RUSAGE_THREAD, &usage);
    return static_cast<double>(usage.ru_minflt + usage.ru_majflt);
  };
  for (auto _ : state) {
    for (int touch = 0; touch < 2; ++touch) writer.write(*picture, ContentKind::live);
    const double before = faults();
    for (int i = 0; i < frames; ++i) writer.write(*picture, ContentKind::live);
    report(state, {"page faults in 300 frames after the first two", "limit", 1, ""},
           faults() - before, 0);
  }
}

/// One output with a style, beside a copy of the frame that comes out.
void compose(benchmark::State& state, const RowText& text, const FeedOutput::Style& style,
             Size from, Size to) {
  const FeedPath feed;
  FeedOutput output(feed.path, LLCameraDevice, maxSide);
  output.update(style, uniformPicture({400, 300}, {0, 0, 128, 128}));
  PlainSlots plain(to);
  const FramePtr frame = numberedPicture(from);
  const auto result = numberedPicture(to);
  compare(
      state, text, {}, [&] { output.deliver(frame, ContentKind::live); },
      [&] { plain.copy(*result); });
}

void androidCanvas(benchmark::State& state) {
  compose(state, {"a 720p frame onto the Android canvas", "memcpy of the canvas", noTarget},
          {.android = true, .fill = true}, {1280, 720}, {1280, 960});
}

void overlaidFullHd(benchmark::State& state) {
  compose(state, {"a 1080p frame with an overlay", "memcpy of the frame", noTarget},
          {.fill = false, .overlay = OverlaySpec{.media = "m", .opacity = 0.7}}, fullHd, fullHd);
}

void cappedUltraHd(benchmark::State& state) {
  compose(state, {"a 4K frame under the cap", "memcpy of the result", noTarget}, {}, {3840, 2160},
          {2048, 1152});
}

/// One source's frames into two hundred feeds, beside copies into as many plain pairs of slots.
void manyFeedsOfOneSource(benchmark::State& state) {
  constexpr std::size_t count = 200;
  constexpr Size size{640, 480};
  std::vector<std::unique_ptr<FeedPath>> paths;
  std::vector<std::shared_ptr<FeedOutput>> outputs;
  std::vector<std::unique_ptr<PlainSlots>> slots;
  const auto controls = std::make_shared<ManualSource::Controls>();
  const auto hub = std::make_shared<SourceHub>("bench", std::make_unique<ManualSource>(controls));
  hub->start();
  for (std::size_t i = 0; i < count; ++i) {
    paths.push_back(std::make_unique<FeedPath>(std::to_string(i)));
    outputs.push_back(std::make_shared<FeedOutput>(paths.back()->path, LLCameraDevice, maxSide));
    hub->add(outputs.back());
    slots.push_back(std::make_unique<PlainSlots>(size));
  }
  while (!controls->running()) std::this_thread::yield();
  const FramePtr frame = numberedPicture(size);
  const auto picture = numberedPicture(size);
  constexpr Turns eachFrame{processCpu, 1, 40};
  for (int touch = 0; touch < 2; ++touch) {
    controls->emit(frame);
    for (const auto& slot : slots) slot->copy(*picture);
  }
  compare(
      state, {"a frame of one source into 200 feeds", "200 x memcpy of the frame", 1.2}, eachFrame,
      [&] { controls->emit(frame); },
      [&] {
        for (const auto& slot : slots) slot->copy(*picture);
      });
  hub->stop().wait();
}

LENSLARK_ROW(writeFullHd);
LENSLARK_ROW(pageFaults);
LENSLARK_ROW(androidCanvas);
LENSLARK_ROW(overlaidFullHd);
LENSLARK_ROW(cappedUltraHd);
LENSLARK_ROW(manyFeedsOfOneSource);

}  // namespace
}  // namespace lenslark::bench
