// What a photograph of twelve megapixels costs, beside the picture library's own thumbnailer in
// the same process and with the same settings. CPU time of all threads.

#include <vips/vips.h>

#include <cstdlib>
#include <string>

#include "codecs/Modules.h"
#include "support/Row.h"
#include "support/TemporaryDirectory.h"

namespace lenslark::bench {
namespace {

constexpr int maxSide = 2048;
constexpr Turns turns{processCpu, 1, 9};

/// Empty when it cannot be made.
std::string makePhotograph(const TemporaryDirectory& directory, const char* scene) {
  const std::string path = (directory / "photo.jpg").string();
  const std::string command =
      std::string("ffmpeg -nostdin -v error -f lavfi -i ") + scene + " -frames:v 1 -q:v 3 " + path;
  return std::system(command.c_str()) == 0 ? path : "";
}

void thumbnail(const std::string& path) {
  VipsImage* image = nullptr;
  if (vips_thumbnail(path.c_str(), &image, maxSide, "height", maxSide, "size", VIPS_SIZE_DOWN,
                     nullptr) != 0) {
    std::abort();
  }
  std::size_t bytes = 0;
  void* pixels = vips_image_write_to_memory(image, &bytes);
  if (pixels == nullptr) std::abort();
  g_free(pixels);
  g_object_unref(image);
}

void loadTwelveMegapixels(benchmark::State& state, const std::string& what, const char* scene) {
  const TemporaryDirectory directory;
  const std::string path = makePhotograph(directory, scene);
  if (path.empty()) return skip(state, what, "ffmpeg, which makes the picture, not installed");
  ImageCodec& codec = Modules::imageCodec();
  compare(
      state, {what, "vips_thumbnail in process", 1.05}, turns,
      [&] { benchmark::DoNotOptimize(codec.load(path, maxSide)); }, [&] { thumbnail(path); });
}

/// About as many bytes a pixel as a telephone's camera writes.
void photograph(benchmark::State& state) {
  loadTwelveMegapixels(state, "a 12-megapixel JPEG of 2 MB to 2048",
                       "mandelbrot=size=4000x3000,noise=alls=14,gblur=sigma=0.6");
}

/// The most that the entropy decoder can be given to do.
void grain(benchmark::State& state) {
  loadTwelveMegapixels(state, "a 12-megapixel JPEG of 20 MB to 2048",
                       "gradients=size=4000x3000,noise=alls=8:allf=t");
}

LENSLARK_ROW(photograph);
LENSLARK_ROW(grain);

}  // namespace
}  // namespace lenslark::bench
