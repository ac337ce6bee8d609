#include "sources/SlideshowSource.h"

#include <cmath>
#include <mutex>

#include "base/Log.h"
#include "media/ImageLoader.h"
#include "media/MediaError.h"
#include "sources/ImageSource.h"

namespace lenslark {
namespace {

double clampInterval(double seconds) noexcept {
  if (!(seconds >= SlideshowSource::minIntervalSec)) return SlideshowSource::minIntervalSec;
  return std::fmin(seconds, SlideshowSource::maxIntervalSec);
}

FramePtr loadPicture(const std::filesystem::path& file) {
  return ImageLoader::load(file, ImageSource::maxPixelSize);
}

}  // namespace

struct SlideshowSource::Show {
  Show(std::vector<std::filesystem::path> pictures, double interval, Loader loader)
      : files(std::move(pictures)), intervalSec(clampInterval(interval)), load(std::move(loader)) {}

  /// Shows the next picture. One that fails is passed over, and the next tick shows the one after.
  void tick() {
    if (!emit) return;
    const auto& file = files[counter % files.size()];
    ++counter;
    if (auto picture = loadOrNote(file)) emit(std::move(picture));
  }

  /// That pictures cannot be read at all is worth telling, once; a single bad one is not.
  FramePtr loadOrNote(const std::filesystem::path& file) {
    if (file.empty()) return nullptr;
    try {
      return load(file);
    } catch (const std::exception& error) {
      const std::lock_guard lock(mutex);
      if (problem != error.what()) Log::router().error("slideshow: {}", error.what());
      problem = error.what();
      return nullptr;
    }
  }

  const std::vector<std::filesystem::path> files;
  const double intervalSec;
  const Loader load;

  // The queue's.
  Emit emit;
  std::size_t counter = 0;

  std::mutex mutex;  // guards problem
  std::optional<std::string> problem;
};

SlideshowSource::SlideshowSource(std::vector<std::filesystem::path> files, double intervalSec,
                                 Loader load)
    : show_(std::make_shared<Show>(std::move(files), intervalSec,
                                   load ? std::move(load) : Loader(loadPicture))),
      queue_("lenslark.slideshow", SerialQueue::Lane::blocking),
      timer_(queue_, [weak = std::weak_ptr(show_)] {
        if (const auto show = weak.lock()) show->tick();
      }) {}

SlideshowSource::~SlideshowSource() = default;

void SlideshowSource::start(Emit emit) {
  if (show_->files.empty()) throw MediaError::notFound("slideshow images");
  queue_.sync([&] { show_->emit = std::move(emit); });
  timer_.schedule(std::chrono::nanoseconds(0),
                  std::chrono::nanoseconds(std::llround(show_->intervalSec * 1e9)));
}

void SlideshowSource::stop() {
  timer_.stop();
  queue_.sync([this] { show_->emit = nullptr; });
}

std::optional<std::string> SlideshowSource::problem() const {
  const std::lock_guard lock(show_->mutex);
  return show_->problem;
}

double SlideshowSource::intervalSec() const noexcept { return show_->intervalSec; }

}  // namespace lenslark
