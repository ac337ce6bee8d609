// What a photograph of twelve megapixels costs, beside the picture library's own thumbnailer in
// the same process and with the same settings. CPU time of all threads.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <vips/vips.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "codecs/Modules.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr int maxSide = 2048;
constexpr int rounds = 7;

double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

template <typename Body>
double cpuOf(Body&& body) {
  const double before = cpuSeconds();
  body();
  return cpuSeconds() - before;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

std::string makePhotograph(const TemporaryDirectory& directory) {
  const std::string path = (directory / "photo.jpg").string();
  const std::string command =
      "ffmpeg -loglevel error -f lavfi -i gradients=size=4000x3000,noise=alls=8:allf=t "
      "-frames:v 1 -q:v 3 " +
      path;
  if (std::system(command.c_str()) != 0) std::abort();
  return path;
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

void loadTwelveMegapixels(benchmark::State& state) {
  const TemporaryDirectory directory;
  const std::string path = makePhotograph(directory);
  ImageCodec& codec = Modules::imageCodec();
  std::vector<double> ours;
  std::vector<double> peer;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      ours.push_back(cpuOf([&] { benchmark::DoNotOptimize(codec.load(path, maxSide)); }));
      peer.push_back(cpuOf([&] { thumbnail(path); }));
    }
  }
  state.counters["ours_ms"] = median(ours) * 1e3;
  state.counters["peer_ms"] = median(peer) * 1e3;
  state.counters["ratio"] = median(ours) / median(peer);
}
BENCHMARK(loadTwelveMegapixels)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace lenslark
