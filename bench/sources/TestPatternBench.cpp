// What a frame of the test pattern costs, beside a plain copy of one, and beside a general media
// tool that draws a test pattern of its own.

#include <array>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "graphics/PixelBuffer.h"
#include "sources/TestPattern.h"
#include "support/Row.h"

namespace lenslark::bench {
namespace {

constexpr Size hd{1280, 720};
constexpr const char* what = "a 720p frame of the test pattern";

/// A letter of the size and shape that the caption's letters have at this height: a solid stem in
/// a box whose edges are half covered.
GlyphMask letter() {
  GlyphMask mask{20, 27, 1, 27, 21.7, std::vector<std::uint8_t>(20 * 27, 0)};
  for (std::size_t i = 0; i < mask.coverage.size(); ++i) {
    const auto x = i % 20;
    if (x >= 6 && x < 14) mask.coverage[i] = x == 6 || x == 13 ? 128 : 255;
  }
  return mask;
}

/// The pattern as its source draws it, frame after frame.
class Film {
 public:
  Film() {
    pattern_.setLetters(std::vector(TestPattern::captionText.size(), letter()),
                        std::vector(TestPattern::captionDigits.size(), letter()));
  }
  /// In turns, as one buffer is drawn into while the cameras hold the other.
  void draw() {
    const auto target = frames_[++number_ % 2].span();
    if (number_ <= 2) {
      pattern_.draw(target, number_, time);
    } else {
      pattern_.redraw(target, number_ - 2, number_, time);
    }
  }
  PixelView view() const { return frames_[number_ % 2].view(); }

 private:
  static constexpr std::string_view time = "12:34:56.789";

  TestPattern pattern_{hd, "lenslark://test-pattern"};
  std::array<PixelBuffer, 2> frames_{PixelBuffer{hd, true}, PixelBuffer{hd, true}};
  std::uint64_t number_ = 0;
};

void besideCopy(benchmark::State& state) {
  Film film;
  PixelBuffer copy(hd, true);
  compare(
      state, {what, "memcpy of the frame", 2}, {.turns = 60}, [&] { film.draw(); },
      [&] {
        std::memcpy(copy.span().data, film.view().data, 1280 * 720 * 4);
        benchmark::ClobberMemory();
      });
}

/// CPU seconds that ffmpeg takes to draw so many frames; nothing of them is written.
double ffmpegCpu(int frames) {
  const std::string command =
      "ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=1280x720:rate=30 -frames:v " +
      std::to_string(frames) + " -pix_fmt bgra -f null -";
  const double before = childrenCpu();
  if (std::system(command.c_str()) != 0) std::abort();
  return childrenCpu() - before;
}

void besideFfmpeg(benchmark::State& state) {
  constexpr int few = 20;
  constexpr int many = 220;
  constexpr int rounds = 5;
  if (std::system("command -v ffmpeg >/dev/null") != 0) {
    return skip(state, what, "ffmpeg not installed");
  }
  Film film;
  film.draw();
  std::vector<double> ours;
  std::vector<double> peer;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      ours.push_back(costOf(threadCpu, many, [&] { film.draw(); }));
      // The difference of two runs leaves out what the tool takes to start.
      peer.push_back((ffmpegCpu(many) - ffmpegCpu(few)) / (many - few));
    }
  }
  report(state, {what, "ffmpeg -f lavfi testsrc2", 0.15}, median(ours), median(peer));
}

LENSLARK_ROW(besideCopy);
LENSLARK_ROW(besideFfmpeg);

}  // namespace
}  // namespace lenslark::bench
