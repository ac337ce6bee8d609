// What it costs to put a frame into a feed, beside a plain copy of the same bytes into the same
// kind of memory. Ours and its peer take turns in small batches, so that both see the same machine.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/FileDescriptor.h"
#include "base/MappedFile.h"
#include "feeds/FeedOutput.h"
#include "feeds/FrameFileOpening.h"
#include "support/NumberedPicture.h"

namespace lenslark {
namespace {

constexpr Size fullHd{1920, 1080};
constexpr int maxSide = 2048;
constexpr int batch = 10;
constexpr int turns = 40;

double cpuSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

template <typename Body>
double costOfBatch(Body&& body) {
  const double before = cpuSeconds();
  for (int i = 0; i < batch; ++i) body();
  return (cpuSeconds() - before) / batch;
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

/// Measures ours alone for the table's cost, then both in turn for the ratio of their medians.
template <typename Ours, typename Peer>
void compare(benchmark::State& state, Ours&& ours, Peer&& peer, double limit) {
  for (auto _ : state) ours();
  std::vector<double> oursCosts;
  std::vector<double> peerCosts;
  costOfBatch(peer);
  for (int turn = 0; turn < turns; ++turn) {
    oursCosts.push_back(costOfBatch(ours));
    peerCosts.push_back(costOfBatch(peer));
  }
  state.counters["ratio"] = median(oursCosts) / median(peerCosts);
  if (limit > 0) state.counters["limit"] = limit;
}

/// A path in memory: a disk that writes pages back would be what is measured.
class FeedPath {
 public:
  FeedPath() = default;
  ~FeedPath() { std::filesystem::remove(path); }
  FeedPath(const FeedPath&) = delete;
  FeedPath& operator=(const FeedPath&) = delete;

  const std::string path = "/dev/shm/lenslark-bench-" + std::to_string(::getpid()) + ".shm";
};

/// Two frames of plain shared memory, written in turn as a feed's slots are.
class PlainSlots {
 public:
  explicit PlainSlots(Size size)
      : bytes_(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height) * 4) {
    const std::string path = "/dev/shm/lenslark-bench-plain-" + std::to_string(::getpid());
    const FileDescriptor file = FrameFileOpening::openPrivate(path);
    ::unlink(path.c_str());
    FrameFileOpening::reserve(file, path, 2 * bytes_);
    memory_ = MappedFile::map(file, 2 * bytes_, MappedFile::Access::readWrite);
  }

  void copy(const PixelBuffer& picture) {
    std::memcpy(memory_.data() + front_ * bytes_, picture.view().data, bytes_);
    benchmark::ClobberMemory();
    front_ = 1 - front_;
  }

 private:
  std::size_t bytes_;
  MappedFile memory_;
  std::size_t front_ = 0;
};

void writeFullHd(benchmark::State& state) {
  const FeedPath feed;
  SharedFrameWriter writer(feed.path, maxSide, maxSide, LLCameraDevice);
  PlainSlots plain(fullHd);
  const auto picture = numberedPicture(fullHd);
  state.SetLabel("memcpy of the frame");
  compare(
      state, [&] { writer.write(*picture, ContentKind::live); }, [&] { plain.copy(*picture); },
      1.10);
}

/// One output with a style, beside a copy of the frame that comes out.
void compose(benchmark::State& state, const FeedOutput::Style& style, Size from, Size to,
             const char* peer) {
  const FeedPath feed;
  FeedOutput output(feed.path, LLCameraDevice, maxSide);
  output.update(style, uniformPicture({400, 300}, {0, 0, 128, 128}));
  PlainSlots plain(to);
  const FramePtr frame = numberedPicture(from);
  const auto result = numberedPicture(to);
  state.SetLabel(peer);
  compare(
      state, [&] { output.deliver(frame, ContentKind::live); }, [&] { plain.copy(*result); }, 0);
}

void androidCanvas(benchmark::State& state) {
  compose(state, {.android = true, .fill = true}, {1280, 720}, {1280, 960}, "memcpy of the canvas");
}

void overlaidFullHd(benchmark::State& state) {
  compose(state, {.fill = false, .overlay = OverlaySpec{.media = "m", .opacity = 0.7}}, fullHd,
          fullHd, "memcpy of the frame");
}

void cappedUltraHd(benchmark::State& state) {
  compose(state, {}, {3840, 2160}, {2048, 1152}, "memcpy of the result");
}

void heartbeat(benchmark::State& state) {
  const FeedPath feed;
  FeedOutput output(feed.path, LLCameraDevice, maxSide);
  for (auto _ : state) output.heartbeat();
}

BENCHMARK(writeFullHd)->Unit(benchmark::kMillisecond);
BENCHMARK(androidCanvas)->Unit(benchmark::kMillisecond);
BENCHMARK(overlaidFullHd)->Unit(benchmark::kMillisecond);
BENCHMARK(cappedUltraHd)->Unit(benchmark::kMillisecond);
BENCHMARK(heartbeat);

}  // namespace
}  // namespace lenslark
