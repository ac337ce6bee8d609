#include "sources/VideoSource.h"

#include <algorithm>
#include <utility>

#include "codecs/Modules.h"
#include "sources/VideoPlayer.h"

namespace lenslark {
namespace {

/// The largest side of a feed's pictures: larger ones would only be scaled down behind us.
constexpr int maxSide = 2048;

}  // namespace

VideoSource::VideoSource(std::filesystem::path path, bool loop, int maxFPS)
    : path_(std::move(path)), loop_(loop), maxFPS_(std::max(maxFPS, 1)) {}

VideoSource::~VideoSource() { stop(); }

void VideoSource::start(Emit emit) {
  const auto player = std::make_shared<VideoPlayer>(
      Modules::videoCodec().open(path_.string(), maxSide), loop_, maxFPS_, std::move(emit));
  player->start();
  const std::lock_guard lock(mutex_);
  player_ = player;
}

void VideoSource::stop() {
  std::shared_ptr<VideoPlayer> player;
  {
    const std::lock_guard lock(mutex_);
    player = std::exchange(player_, nullptr);
  }
  if (player) player->stop();
}

std::optional<std::string> VideoSource::problem() const {
  std::shared_ptr<VideoPlayer> player;
  {
    const std::lock_guard lock(mutex_);
    player = player_;
  }
  return player ? player->problem() : std::nullopt;
}

}  // namespace lenslark
