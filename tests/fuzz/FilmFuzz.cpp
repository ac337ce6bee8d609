// Any bytes as a film: it is refused or played, its pictures are drawn whole and in part, and it is
// played again from its start.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "PlantedFile.h"
#include "base/Error.h"
#include "codecs/Modules.h"
#include "graphics/PixelBuffer.h"

namespace {

using namespace lenslark;

constexpr int maxSide = 256;
constexpr int picturesInPass = 24;

void draw(const Frame& picture) {
  const Size size = picture.size();
  if (size.empty() || size.longerSide() > maxSide) std::abort();
  PixelBuffer whole(size);
  picture.draw(picture.bounds(), whole.span());
  const PixelRect quarter{size.width / 2, size.height / 2, size.width - size.width / 2,
                          size.height - size.height / 2};
  PixelBuffer part(Size{31, 17});
  picture.draw(quarter, part.span());
}

void play(VideoDecoder& film, double lag) {
  film.setLag(lag);
  double last = 0;
  for (int count = 0; count < picturesInPass; ++count) {
    const auto frame = film.next();
    if (!frame) return;
    if (!std::isfinite(frame->timeSec) || frame->timeSec < last) std::abort();
    last = frame->timeSec;
    draw(*frame->picture);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static PlantedFile file;
  static VideoCodec& codec = Modules::videoCodec();  // without it, every input would be refused
  try {
    const auto film = codec.open(file.plant({data, size}), maxSide);
    const VideoInfo& info = film->info();
    if (info.size.empty() || !(info.durationSec >= 0) || !(info.nominalFps >= 0)) std::abort();
    play(*film, 0);
    for (const double lag : {0.0, 0.5, 5.0}) {
      film->rewind();
      play(*film, lag);
    }
  } catch (const Error&) {
    // No film, or one that cannot be played again.
  }
  return 0;
}
