// What it costs to play a film into a camera, beside decoding alone and beside general media tools
// that make the same BGRA pictures. CPU time of all threads, the peers run in turn with ours.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "codecs/Modules.h"
#include "graphics/Compositor.h"
#include "support/Clips.h"
#include "support/TemporaryDirectory.h"

namespace lenslark {
namespace {

constexpr int rounds = 3;
constexpr int maxSide = 2048;

double cpuSeconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

template <typename Body>
double cpuOf(int who, Body&& body) {
  const double before = cpuSeconds(who);
  body();
  return cpuSeconds(who) - before;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

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
    {"h264", calm, "-c:v libx264 -preset veryfast -pix_fmt yuv420p"},
    {"noisy h264", noisy, "-c:v libx264 -preset veryfast -pix_fmt yuv420p"},
    {"hevc", calm, "-c:v libx265 -preset ultrafast -x265-params log-level=none -pix_fmt yuv420p"},
    {"vp9", calm, "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 6M -pix_fmt yuv420p"},
    {"4k h264", large, "-c:v libx264 -preset veryfast -pix_fmt yuv420p"}};

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
  return cpuOf(RUSAGE_SELF, [&] { play(path, Work::draw); });
}

template <typename Peer>
void compare(benchmark::State& state, const Film& film, double limit, const char* label,
             Peer&& peer) {
  const TemporaryDirectory directory;
  const std::string path =
      Clips::make(directory / "film.mkv", std::string(film.source) + " " + film.coding);
  play(path, Work::draw);
  for (auto _ : state) {
    std::vector<double> own;
    std::vector<double> other;
    for (int round = 0; round < rounds; ++round) {
      own.push_back(ours(path));
      other.push_back(peer(path));
    }
    state.SetIterationTime(median(own));
    state.counters["ratio"] = median(own) / median(other);
    state.counters["limit"] = limit;
  }
  state.SetLabel(label);
}

double decodingAlone(const std::string& path) {
  return cpuOf(RUSAGE_SELF, [&] { play(path, Work::decode); });
}

double byFfmpeg(const std::string& path, const std::string& filter) {
  return cpuOf(RUSAGE_CHILDREN, [&] {
    shell("ffmpeg -nostdin -v error -i " + path + filter +
          " -pix_fmt bgra -f rawvideo -y /dev/null");
  });
}

double byGstreamer(const std::string& path, const std::string& size) {
  return cpuOf(RUSAGE_CHILDREN, [&] {
    shell("gst-launch-1.0 -q filesrc location=" + path +
          " ! decodebin ! videoconvert ! videoscale ! video/x-raw,format=BGRA" + size +
          " ! fakesink sync=false");
  });
}

const bool registered = [] {
  for (const Film& film : films) {
    const bool capped = film.source == large;
    const bool noise = film.source == noisy;
    const std::string name = std::string("film/") + film.name;
    const auto add = [&](const std::string& beside, auto body) {
      benchmark::RegisterBenchmark(std::string(name).append("/").append(beside).c_str(), body)
          ->Iterations(1)
          ->UseManualTime()
          ->Unit(benchmark::kMillisecond);
    };
    const double limit = capped ? 0.80 : noise ? 0.90 : 0.85;
    if (!capped) {
      add("decoding", [film](benchmark::State& state) {
        compare(state, film, 1.25, "decoding alone", decodingAlone);
      });
    }
    add("ffmpeg", [film, limit, capped](benchmark::State& state) {
      compare(state, film, limit, "ffmpeg to BGRA", [capped](const std::string& path) {
        return byFfmpeg(path, capped ? " -vf scale=2048:1152" : "");
      });
    });
    add("gstreamer", [film, limit, capped](benchmark::State& state) {
      compare(state, film, limit, "GStreamer to BGRA", [capped](const std::string& path) {
        return byGstreamer(path, capped ? ",width=2048,height=1152" : "");
      });
    });
  }
  return true;
}();

}  // namespace
}  // namespace lenslark
