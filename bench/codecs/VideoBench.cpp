// What it costs to play a film into a camera, beside decoding alone and beside general media tools
// that make the same BGRA pictures. CPU time of all threads, the peers run in turn with ours.

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "codecs/Modules.h"
#include "graphics/Compositor.h"
#include "support/Clips.h"
#include "support/Row.h"
#include "support/TemporaryDirectory.h"

namespace lenslark::bench {
namespace {

constexpr int rounds = 5;
constexpr int maxSide = 2048;

void shell(const std::string& command) {
  if (std::system(command.c_str()) != 0) std::abort();
}

struct Film {
  const char* name;
  const char* source;
  const char* coding;
};

constexpr const char* calm = "-f lavfi -i testsrc2=size=1920x1080:rate=30:duration=2";
constexpr const char* noisy =
    "-f lavfi -i testsrc2=size=1920x1080:rate=30:duration=2,noise=alls=10:allf=t";
constexpr const char* large = "-f lavfi -i testsrc2=size=3840x2160:rate=30:duration=2";

const std::vector<Film> films{
    {"1080p H.264", calm, "-c:v libx264 -preset veryfast -pix_fmt yuv420p"},
    {"noisy 1080p H.264", noisy, "-c:v libx264 -preset veryfast -pix_fmt yuv420p"},
    {"1080p HEVC", calm,
     "-c:v libx265 -preset ultrafast -x265-params log-level=none -pix_fmt yuv420p"},
    {"1080p VP9", calm, "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 6M -pix_fmt yuv420p"},
    {"4K H.264 under the cap", large, "-c:v libx264 -preset veryfast -pix_fmt yuv420p"}};

enum class Work { decode, draw };

/// Plays a film once as fast as it goes.
void play(const std::string& path, Work work) {
  const auto film = Modules::videoCodec().open(path, maxSide);
  std::unique_ptr<PixelBuffer> slot;
  while (const auto frame = film->next()) {
    if (work == Work::decode) continue;
    if (slot == nullptr) slot = std::make_unique<PixelBuffer>(frame->picture->size(), true);
    benchmark::DoNotOptimize(frame->picture->draw(frame->picture->bounds(), slot->span()));
  }
}

double ours(const std::string& path) {
  return costOf(processCpu, 1, [&] { play(path, Work::draw); });
}

template <typename Peer>
void compareFilm(benchmark::State& state, const Film& film, const RowText& text, Peer&& peer) {
  const TemporaryDirectory directory;
  const std::string path =
      Clips::make(directory / "film.mkv", std::string(film.source) + " " + film.coding);
  play(path, Work::draw);
  std::vector<double> own;
  std::vector<double> other;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      own.push_back(ours(path));
      other.push_back(peer(path));
    }
  }
  report(state, text, median(own), median(other));
}

double decodingAlone(const std::string& path) {
  return costOf(processCpu, 1, [&] { play(path, Work::decode); });
}

double byFfmpeg(const std::string& path, const std::string& filter) {
  return costOf(childrenCpu, 1, [&] {
    shell("ffmpeg -nostdin -v error -i " + path + filter +
          " -pix_fmt bgra -f rawvideo -y /dev/null");
  });
}

double byGstreamer(const std::string& path, const std::string& size) {
  return costOf(childrenCpu, 1, [&] {
    shell("gst-launch-1.0 -q filesrc location=" + path +
          " ! decodebin ! videoconvert ! videoscale ! video/x-raw,format=BGRA" + size +
          " ! fakesink sync=false");
  });
}

bool has(const char* program) {
  return std::system((std::string("command -v ") + program + " >/dev/null").c_str()) == 0;
}

const bool registered = [] {
  for (const Film& film : films) {
    const bool capped = film.source == large;
    const bool noise = film.source == noisy;
    const std::string what = std::string("two seconds of ") + film.name;
    const auto add = [&](const RowText& text, const char* tool, auto peer) {
      const auto row = [film, text, tool, peer](benchmark::State& state) {
        for (const char* needed : {"ffmpeg", tool}) {
          if (!has(needed)) return skip(state, text.what, std::string(needed) + " not installed");
        }
        compareFilm(state, film, text, peer);
      };
      benchmark::RegisterBenchmark((what + " beside " + text.peer).c_str(), row)->Iterations(1);
    };
    const double target = capped ? 0.80 : noise ? 0.90 : 0.85;
    if (!capped) add({what, "decoding alone", 1.25}, "ffmpeg", decodingAlone);
    add({what, "ffmpeg to BGRA", target}, "ffmpeg", [capped](const std::string& path) {
      return byFfmpeg(path, capped ? " -vf scale=2048:1152" : "");
    });
    add({what, "GStreamer to BGRA", target}, "gst-launch-1.0", [capped](const std::string& path) {
      return byGstreamer(path, capped ? ",width=2048,height=1152" : "");
    });
  }
  return true;
}();

}  // namespace
}  // namespace lenslark::bench
